#include <fcntl.h>
#include <io.h>
#include <securitybaseapi.h>
#include <sys/stat.h>
#include <unistd.h>
#include <winbase.h>

#include <cerrno>
#include <optional>
#include <string>

#include "descriptor.h"
#include "file_object.h"
#include "last_error.h"
#include "paths.h"
#include "pipe.h"
#include "security.h"
#include "share_mode.h"
#include "thread_identity.h"

using namespace platform;

namespace {

constexpr DWORD kWriteAccess = FILE_WRITE_DATA | FILE_APPEND_DATA;
constexpr DWORD kKnownFlags = FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_TEMPORARY |
                              FILE_ATTRIBUTE_READONLY | FILE_FLAG_DELETE_ON_CLOSE |
                              FILE_FLAG_SEQUENTIAL_SCAN | FILE_FLAG_WRITE_THROUGH |
                              FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

// An opened file.
class File : public DescriptorObject {
  public:
    File(UniqueDescriptor descriptor, DWORD access, std::string pathToDelete)
        : DescriptorObject(descriptor.Release()),
          access_(access),
          pathToDelete_(std::move(pathToDelete)) {}
    ~File() override {
        const std::string& path = pathToDelete_;
        if (!path.empty() && IsFileAt(path, descriptor_)) unlink(path.c_str());
        close(descriptor_);
    }

    bool MayWrite() const { return (access_ & kWriteAccess) != 0; }
    bool MayChangeList() const { return (access_ & WRITE_DAC) != 0; }
    BOOL Read(void* buffer, DWORD size, DWORD& read, OVERLAPPED* overlapped) override {
        if ((access_ & FILE_READ_DATA) == 0) return Fail(ERROR_ACCESS_DENIED);
        return DescriptorObject::Read(buffer, size, read, overlapped);
    }
    BOOL Write(const void* data, DWORD size, DWORD& written, OVERLAPPED* overlapped) override {
        if (!MayWrite()) return Fail(ERROR_ACCESS_DENIED);
        return DescriptorObject::Write(data, size, written, overlapped);
    }
    BOOL Flush() override {
        if (!MayWrite()) return Fail(ERROR_ACCESS_DENIED);
        return DescriptorObject::Flush();
    }

  private:
    DWORD access_;
    std::string pathToDelete_;
};

// What the caller asks for.
struct Request {
    std::string path;
    DWORD access;  // generic rights resolved
    DWORD share;
    DWORD disposition;
    DWORD flags;
    mode_t mode;  // of a new file
    std::optional<GroupAccess> group;
};

DWORD SpecificAccess(DWORD access) {
    if ((access & GENERIC_ALL) != 0) access |= FILE_READ_DATA | kWriteAccess | DELETE;
    if ((access & GENERIC_READ) != 0) access |= FILE_READ_DATA;
    if ((access & GENERIC_WRITE) != 0) access |= kWriteAccess;
    return access;
}

bool CheckRequest(const Request& request, HANDLE templateFile) {
    if (request.disposition < CREATE_NEW || request.disposition > OPEN_ALWAYS) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (templateFile != nullptr || (request.flags & ~kKnownFlags) != 0) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    return true;
}

// The flags of open() for the access. A regular file that is only written is opened for reading,
// too, where that is allowed: a share mode can be announced on no other descriptor.
int OpenFlags(const Request& request, bool regular) {
    const bool reads = (request.access & FILE_READ_DATA) != 0;
    const bool writes = (request.access & kWriteAccess) != 0;
    int flags = O_CLOEXEC | O_NOCTTY;
    flags |= !writes ? O_RDONLY : reads || regular ? O_RDWR : O_WRONLY;
    if (writes && (request.access & FILE_WRITE_DATA) == 0) flags |= O_APPEND;
    if ((request.flags & FILE_FLAG_WRITE_THROUGH) != 0) flags |= O_DSYNC;
    if ((request.flags & FILE_FLAG_OPEN_REPARSE_POINT) != 0) flags |= O_NOFOLLOW;
    return flags;
}

UniqueDescriptor OpenExisting(const Request& request) {
    struct stat info {};
    const bool regular = stat(request.path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
    // A pipe whose other end nobody has open must not keep the caller waiting.
    UniqueDescriptor file(open(request.path.c_str(), OpenFlags(request, regular) | O_NONBLOCK));
    if (!file && errno == EACCES && (request.access & FILE_READ_DATA) == 0) {
        file = UniqueDescriptor(open(request.path.c_str(), OpenFlags(request, false) | O_NONBLOCK));
    }
    if (file) fcntl(file.get(), F_SETFL, fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
    return file;
}

UniqueDescriptor Create(const Request& request, int extraFlags) {
    return UniqueDescriptor(
        open(request.path.c_str(), OpenFlags(request, true) | O_CREAT | extraFlags, 0600));
}

// Opens or creates as the disposition says, without changing an existing file. `existed` tells
// which it was.
UniqueDescriptor OpenByDisposition(const Request& request, bool& existed) {
    existed = request.disposition == OPEN_EXISTING;
    if (existed) return OpenExisting(request);
    UniqueDescriptor file = Create(request, O_EXCL);
    if (file || errno != EEXIST || request.disposition == CREATE_NEW) return file;
    existed = true;
    file = OpenExisting(request);
    if (file || errno != ENOENT) return file;
    // It went meanwhile, or a symbolic link names a file that is still to be made.
    existed = false;
    return Create(request, 0);
}

// Refuses what may not be opened so, by anyone or by this caller.
bool CheckKind(const Request& request, const struct stat& info) {
    const bool opensFolders = (request.flags & FILE_FLAG_BACKUP_SEMANTICS) != 0;
    const bool deniedToAll = (S_ISDIR(info.st_mode) && !opensFolders) ||
                             (IsReadOnly(info) && (request.access & kWriteAccess) != 0);
    const bool deniedToThis =
        (request.access & WRITE_DAC) != 0 && ThreadAccount() != 0 && ThreadAccount() != info.st_uid;
    return !(deniedToAll || deniedToThis) || Fail(ERROR_ACCESS_DENIED);
}

// Gives a file just made its permissions, or cuts an existing one to nothing where asked for.
bool PrepareContent(const Request& request, int file, bool existed) {
    if (!existed) {
        const bool readOnly = (request.flags & FILE_ATTRIBUTE_READONLY) != 0;
        return ApplyAccess(file, readOnly ? request.mode & 0444u : request.mode, request.group) ||
               FailWithErrno(errno);
    }
    return request.disposition != CREATE_ALWAYS || ftruncate(file, 0) == 0 || FailWithErrno(errno);
}

HANDLE OpenFile(const Request& request) {
    // 1. The file itself.
    bool existed = false;
    UniqueDescriptor file = OpenByDisposition(request, existed);
    struct stat info {};
    if (!file || fstat(file.get(), &info) != 0) return FailToOpen(ErrorOnPath(errno, request.path));
    // 2. May it be used so, also beside those who use it already?
    const DWORD deletes = (request.flags & FILE_FLAG_DELETE_ON_CLOSE) != 0 ? DELETE : 0;
    if ((existed && !CheckKind(request, info)) ||
        ((S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) &&
         !TakeShare(file.get(), request.access | deletes, request.share))) {
        return INVALID_HANDLE_VALUE;
    }
    // 3. Only now it is changed.
    if (S_ISREG(info.st_mode) && !PrepareContent(request, file.get(), existed)) {
        return INVALID_HANDLE_VALUE;
    }
    const bool isSurprise = existed && request.disposition != OPEN_EXISTING;
    SetLastError(isSurprise ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return OpenHandle(
        std::make_shared<File>(std::move(file), request.access, deletes != 0 ? request.path : ""));
}

bool ReadStatus(HANDLE handle, struct stat& info) {
    const auto file = ObjectOf<DescriptorObject>(handle);
    return file && (fstat(file->Descriptor(), &info) == 0 || FailWithErrno(errno));
}

}  // namespace

extern "C" HANDLE WINAPI CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode,
                                     LPSECURITY_ATTRIBUTES lpSecurityAttributes,
                                     DWORD dwCreationDisposition, DWORD dwFlagsAndAttributes,
                                     HANDLE hTemplateFile) {
    const std::string pipe = PipeNameOf(lpFileName);
    if (!pipe.empty()) return OpenPipe(pipe, dwDesiredAccess, dwFlagsAndAttributes);
    const Request request{.path = PathOf(lpFileName),
                          .access = SpecificAccess(dwDesiredAccess),
                          .share = dwShareMode,
                          .disposition = dwCreationDisposition,
                          .flags = dwFlagsAndAttributes,
                          .mode = ModeOfNewFile(lpSecurityAttributes),
                          .group = GroupAccessOf(lpSecurityAttributes)};
    return CheckRequest(request, hTemplateFile) ? OpenFile(request) : INVALID_HANDLE_VALUE;
}

extern "C" DWORD WINAPI GetFileType(HANDLE hFile) {
    struct stat info {};
    if (!ReadStatus(hFile, info)) return FILE_TYPE_UNKNOWN;
    SetLastError(ERROR_SUCCESS);
    if (S_ISREG(info.st_mode) || S_ISDIR(info.st_mode)) return FILE_TYPE_DISK;
    if (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode)) return FILE_TYPE_PIPE;
    return S_ISCHR(info.st_mode) ? FILE_TYPE_CHAR : FILE_TYPE_UNKNOWN;
}

extern "C" int _open_osfhandle(intptr_t osfhandle, int flags) {
    auto* const handle = reinterpret_cast<HANDLE>(osfhandle);
    const auto file = ObjectOf<DescriptorObject>(handle);
    if (!file || (flags & ~_O_TEXT) != 0) {
        errno = file ? EINVAL : EBADF;
        return -1;
    }
    const int descriptor = fcntl(file->Descriptor(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (descriptor >= 0) ReleaseHandle(handle);
    return descriptor;
}

extern "C" int _close(int fd) {
    return close(fd);
}

extern "C" std::FILE* _fdopen(int fd, const char* mode) {
    return fdopen(fd, mode);
}

extern "C" BOOL WINAPI GetFileInformationByHandle(HANDLE hFile,
                                                  LPBY_HANDLE_FILE_INFORMATION lpFileInformation) {
    struct stat info {};
    if (!ReadStatus(hFile, info)) return FALSE;
    LARGE_INTEGER size = {};
    size.QuadPart = info.st_size;
    *lpFileInformation = {};
    lpFileInformation->dwFileAttributes = AttributesOf(info);
    lpFileInformation->nFileSizeHigh = static_cast<DWORD>(size.u.HighPart);
    lpFileInformation->nFileSizeLow = size.u.LowPart;
    lpFileInformation->nNumberOfLinks =
        S_ISDIR(info.st_mode) ? 1 : static_cast<DWORD>(info.st_nlink);
    return TRUE;
}

extern "C" BOOL WINAPI SetKernelObjectSecurity(HANDLE Handle,
                                               SECURITY_INFORMATION SecurityInformation,
                                               PSECURITY_DESCRIPTOR SecurityDescriptor) {
    constexpr SECURITY_INFORMATION kList =
        DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION;
    const auto file = ObjectOf<File>(Handle);
    if (!file) return FALSE;
    if (SecurityInformation != kList) return Fail(ERROR_NOT_SUPPORTED);
    if (!file->MayChangeList()) return Fail(ERROR_ACCESS_DENIED);
    const SECURITY_ATTRIBUTES attributes = {sizeof attributes, SecurityDescriptor, FALSE};
    return ApplyAccess(file->Descriptor(), attributes) ? TRUE : FailWithErrno(errno);
}

extern "C" BOOL WINAPI GetFileSizeEx(HANDLE hFile, PLARGE_INTEGER lpFileSize) {
    struct stat info {};
    if (!ReadStatus(hFile, info)) return FALSE;
    lpFileSize->QuadPart = info.st_size;
    return TRUE;
}

extern "C" BOOL WINAPI SetFilePointerEx(HANDLE hFile, LARGE_INTEGER liDistanceToMove,
                                        PLARGE_INTEGER lpNewFilePointer, DWORD dwMoveMethod) {
    static_assert(FILE_BEGIN == SEEK_SET && FILE_CURRENT == SEEK_CUR && FILE_END == SEEK_END);
    const auto file = ObjectOf<DescriptorObject>(hFile);
    if (!file) return FALSE;
    if (dwMoveMethod > FILE_END) return Fail(ERROR_INVALID_PARAMETER);
    const off_t position =
        lseek(file->Descriptor(), liDistanceToMove.QuadPart, static_cast<int>(dwMoveMethod));
    if (position < 0 && errno == EINVAL) return Fail(ERROR_NEGATIVE_SEEK);
    if (position < 0) return FailWithErrno(errno);
    if (lpNewFilePointer != nullptr) lpNewFilePointer->QuadPart = position;
    return TRUE;
}

extern "C" BOOL WINAPI SetEndOfFile(HANDLE hFile) {
    const auto file = ObjectOf<File>(hFile);
    if (!file) return FALSE;
    if (!file->MayWrite()) return Fail(ERROR_ACCESS_DENIED);
    const int descriptor = file->Descriptor();
    const off_t position = lseek(descriptor, 0, SEEK_CUR);
    struct stat info {};
    if (position < 0 || fstat(descriptor, &info) != 0) return FailWithErrno(errno);
    // A file that grows takes its room on the disk at once.
    const off_t added = position - info.st_size;
    const int error = added > 0 ? posix_fallocate(descriptor, info.st_size, added) : 0;
    if (error != 0 && ftruncate(descriptor, info.st_size) == 0) return FailWithErrno(error);
    if (error != 0 || ftruncate(descriptor, position) != 0) return FailWithErrno(errno);
    return TRUE;
}
