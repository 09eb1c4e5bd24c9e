#include <memoryapi.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>

#include "descriptor.h"
#include "file_object.h"
#include "last_error.h"

namespace {

using platform::Fail;
using platform::FailWithErrno;

class FileMapping : public platform::KernelObject {
  public:
    FileMapping(platform::UniqueDescriptor file, std::size_t size, bool writable)
        : file_(std::move(file)), size_(size), writable_(writable) {}

    int Descriptor() const { return file_.get(); }
    std::size_t Size() const { return size_; }
    bool IsWritable() const { return writable_; }

  private:
    platform::UniqueDescriptor file_;
    std::size_t size_;
    bool writable_;
};

// Sizes of the views by their addresses: the caller gives back an address alone.
class Views {
  public:
    void Add(void* address, std::size_t size) {
        const std::lock_guard lock(mutex_);
        sizes_[address] = size;
    }
    std::size_t Remove(const void* address) {
        const std::lock_guard lock(mutex_);
        const auto found = sizes_.find(address);
        if (found == sizes_.end()) return 0;
        const std::size_t size = found->second;
        sizes_.erase(found);
        return size;
    }

  private:
    std::mutex mutex_;
    std::map<const void*, std::size_t> sizes_;
};

Views& AllViews() {
    static auto* const views = new Views;
    return *views;
}

}  // namespace

extern "C" HANDLE WINAPI CreateFileMappingW(HANDLE hFile,
                                            LPSECURITY_ATTRIBUTES /*lpFileMappingAttributes*/,
                                            DWORD flProtect, DWORD dwMaximumSizeHigh,
                                            DWORD dwMaximumSizeLow, LPCWSTR lpName) {
    const auto fail = [](DWORD error) -> HANDLE {
        SetLastError(error);
        return nullptr;
    };
    // 1. What is asked for.
    if (hFile == INVALID_HANDLE_VALUE || dwMaximumSizeHigh != 0 || dwMaximumSizeLow != 0 ||
        lpName != nullptr)
        return fail(ERROR_NOT_SUPPORTED);
    if (flProtect != PAGE_READONLY && flProtect != PAGE_READWRITE) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    const auto file = platform::ObjectOf<platform::DescriptorObject>(hFile);
    if (!file) return nullptr;
    // 2. The size, which is the file's.
    const bool writable = flProtect == PAGE_READWRITE;
    struct stat info {};
    if (fstat(file->Descriptor(), &info) != 0) return fail(platform::ErrorOfErrno(errno));
    const auto fileSize = static_cast<std::uint64_t>(info.st_size);
    if (fileSize == 0) return fail(ERROR_FILE_INVALID);
    // 3. The mapping outlives the file's handle.
    platform::UniqueDescriptor own(dup(file->Descriptor()));
    if (!own) return fail(platform::ErrorOfErrno(errno));
    SetLastError(ERROR_SUCCESS);
    return platform::OpenHandle(std::make_shared<FileMapping>(std::move(own), fileSize, writable));
}

extern "C" LPVOID WINAPI MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess,
                                       DWORD dwFileOffsetHigh, DWORD dwFileOffsetLow,
                                       SIZE_T dwNumberOfBytesToMap) {
    const auto mapping = platform::ObjectOf<FileMapping>(hFileMappingObject);
    if (!mapping) return nullptr;
    const auto fail = [](DWORD error) -> LPVOID {
        SetLastError(error);
        return nullptr;
    };
    const bool writes = (dwDesiredAccess & FILE_MAP_WRITE) != 0;
    if (dwFileOffsetHigh != 0 || dwFileOffsetLow != 0 || dwNumberOfBytesToMap != 0) {
        return fail(ERROR_NOT_SUPPORTED);
    }
    if (writes && !mapping->IsWritable()) return fail(ERROR_ACCESS_DENIED);
    void* const view = mmap(nullptr, mapping->Size(), writes ? PROT_READ | PROT_WRITE : PROT_READ,
                            MAP_SHARED, mapping->Descriptor(), 0);
    if (view == MAP_FAILED) return fail(platform::ErrorOfErrno(errno));
    AllViews().Add(view, mapping->Size());
    return view;
}

extern "C" BOOL WINAPI UnmapViewOfFile(LPCVOID lpBaseAddress) {
    const std::size_t size = AllViews().Remove(lpBaseAddress);
    if (size == 0) return Fail(ERROR_INVALID_ADDRESS);
    return munmap(const_cast<void*>(lpBaseAddress), size) == 0 ? TRUE : FailWithErrno(errno);
}
