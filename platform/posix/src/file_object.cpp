#include "file_object.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "last_error.h"

namespace platform {

BOOL FileObject::Flush() {
    return Fail(ERROR_INVALID_HANDLE);
}

BOOL DescriptorObject::Read(void* buffer, DWORD size, DWORD& read, OVERLAPPED* overlapped) {
    if (overlapped != nullptr) return Fail(ERROR_NOT_SUPPORTED);
    ssize_t got = 0;
    do {
        got = ::read(descriptor_, buffer, size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return FailWithErrno(errno);
    read = static_cast<DWORD>(got);
    return TRUE;
}

BOOL DescriptorObject::Write(const void* data, DWORD size, DWORD& written, OVERLAPPED* overlapped) {
    if (overlapped != nullptr) return Fail(ERROR_NOT_SUPPORTED);
    const char* const bytes = static_cast<const char*>(data);
    while (written < size) {
        const ssize_t put = write(descriptor_, bytes + written, size - written);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return FailWithErrno(errno);
        written += static_cast<DWORD>(put);
    }
    return TRUE;
}

BOOL DescriptorObject::Flush() {
    // A stream without storage has nothing to flush.
    if (fsync(descriptor_) == 0 || errno == EINVAL || errno == EROFS) return TRUE;
    return FailWithErrno(errno);
}

std::optional<uid_t> DescriptorObject::Owner() {
    struct stat info {};
    if (fstat(descriptor_, &info) == 0) return info.st_uid;
    return FailWithErrno<std::optional<uid_t>>(errno);
}

}  // namespace platform

using namespace platform;

extern "C" BOOL WINAPI ReadFile(HANDLE hFile, LPVOID lpBuffer, DWORD nNumberOfBytesToRead,
                                LPDWORD lpNumberOfBytesRead, LPOVERLAPPED lpOverlapped) {
    DWORD ignored = 0;
    DWORD& read = lpNumberOfBytesRead == nullptr ? ignored : *lpNumberOfBytesRead;
    read = 0;
    const auto file = ObjectOf<FileObject>(hFile);
    return file ? file->Read(lpBuffer, nNumberOfBytesToRead, read, lpOverlapped) : FALSE;
}

extern "C" BOOL WINAPI WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite,
                                 LPDWORD lpNumberOfBytesWritten, LPOVERLAPPED lpOverlapped) {
    DWORD ignored = 0;
    DWORD& written = lpNumberOfBytesWritten == nullptr ? ignored : *lpNumberOfBytesWritten;
    written = 0;
    const auto file = ObjectOf<FileObject>(hFile);
    return file ? file->Write(lpBuffer, nNumberOfBytesToWrite, written, lpOverlapped) : FALSE;
}

extern "C" BOOL WINAPI FlushFileBuffers(HANDLE hFile) {
    const auto file = ObjectOf<FileObject>(hFile);
    return file ? file->Flush() : FALSE;
}
