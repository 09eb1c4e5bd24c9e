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

using namespace platform;

namespace {

class FileMapping : public KernelObject {
  public:
    FileMapping(UniqueDescriptor file, std::size_t size, bool writable)
        : file_(std::move(file)), size_(size), writable_(writable) {}

    int Descriptor() const { return file_.get(); }
    std::size_t Size() const { return size_; }
    bool IsWritable() const { return writable_; }

  private:
    UniqueDescriptor file_;
    std::size_t size_;
    bool writable_;
};

// Sizes of the views by their addresses: the caller gives back an address alone.
std::mutex viewsMutex;

std::map<const void*, std::size_t>& Views() {
    static auto* const views = new std::map<const void*, std::size_t>;
    return *views;
}

}  // namespace

extern "C" HANDLE WINAPI CreateFileMappingW(HANDLE hFile,
                                            LPSECURITY_ATTRIBUTES /*lpFileMappingAttributes*/,
                                            DWORD flProtect, DWORD dwMaximumSizeHigh,
                                            DWORD dwMaximumSizeLow, LPCWSTR lpName) {
    // 1. What is asked for.
    if (hFile == INVALID_HANDLE_VALUE || dwMaximumSizeHigh != 0 || dwMaximumSizeLow != 0 ||
        lpName != nullptr)
        return Fail<HANDLE>(ERROR_NOT_SUPPORTED);
    if (flProtect != PAGE_READONLY && flProtect != PAGE_READWRITE) {
        return Fail<HANDLE>(ERROR_INVALID_PARAMETER);
    }
    const auto file = ObjectOf<DescriptorObject>(hFile);
    if (!file) return nullptr;
    // 2. The size, which is the file's.
    const bool writable = flProtect == PAGE_READWRITE;
    struct stat info {};
    if (fstat(file->Descriptor(), &info) != 0) return FailWithErrno<HANDLE>(errno);
    const auto fileSize = static_cast<std::uint64_t>(info.st_size);
    if (fileSize == 0) return Fail<HANDLE>(ERROR_FILE_INVALID);
    // 3. The mapping outlives the file's handle.
    UniqueDescriptor own(dup(file->Descriptor()));
    if (!own) return FailWithErrno<HANDLE>(errno);
    SetLastError(ERROR_SUCCESS);
    return OpenHandle(std::make_shared<FileMapping>(std::move(own), fileSize, writable));
}

extern "C" LPVOID WINAPI MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess,
                                       DWORD dwFileOffsetHigh, DWORD dwFileOffsetLow,
                                       SIZE_T dwNumberOfBytesToMap) {
    const auto mapping = ObjectOf<FileMapping>(hFileMappingObject);
    if (!mapping) return nullptr;
    const bool writes = (dwDesiredAccess & FILE_MAP_WRITE) != 0;
    if (dwFileOffsetHigh != 0 || dwFileOffsetLow != 0 || dwNumberOfBytesToMap != 0) {
        return Fail<LPVOID>(ERROR_NOT_SUPPORTED);
    }
    if (writes && !mapping->IsWritable()) return Fail<LPVOID>(ERROR_ACCESS_DENIED);
    void* const view = mmap(nullptr, mapping->Size(), writes ? PROT_READ | PROT_WRITE : PROT_READ,
                            MAP_SHARED, mapping->Descriptor(), 0);
    if (view == MAP_FAILED) return FailWithErrno<LPVOID>(errno);
    const std::lock_guard lock(viewsMutex);
    Views()[view] = mapping->Size();
    return view;
}

extern "C" BOOL WINAPI UnmapViewOfFile(LPCVOID lpBaseAddress) {
    const std::lock_guard lock(viewsMutex);
    const auto view = Views().extract(lpBaseAddress);
    if (!view) return Fail(ERROR_INVALID_ADDRESS);
    return munmap(const_cast<void*>(lpBaseAddress), view.mapped()) == 0 || FailWithErrno(errno);
}
