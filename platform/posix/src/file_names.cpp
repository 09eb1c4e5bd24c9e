// Calls on files and folders by their names alone.
#include <dirent.h>
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <unistd.h>
#include <winbase.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

#include "descriptor.h"
#include "handles.h"
#include "last_error.h"
#include "paths.h"
#include "security.h"
#include "share_mode.h"
#include "text.h"

namespace {

using platform::Fail;
using platform::FailOnPath;
using platform::FailWithErrno;
using platform::PathOf;

// Whether the file of that name may go: it is no folder, has no read-only attribute, and nobody
// has it open who forbids it. The caller's permissions are left to the call that follows.
bool MayGo(const std::string& path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) return FailOnPath(errno, path);
    if (S_ISDIR(info.st_mode) || platform::IsReadOnly(info)) return Fail(ERROR_ACCESS_DENIED);
    if (!S_ISREG(info.st_mode)) return true;
    const platform::UniqueDescriptor file(
        open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return !file || platform::SharingAllows(file.get(), DELETE);
}

// Names with at most one "*", which stands for any characters.
class NamePattern {
  public:
    explicit NamePattern(const std::string& text)
        : start_(text.substr(0, text.find('*'))), hasWildcard_(start_.size() < text.size()) {
        if (hasWildcard_) end_ = text.substr(start_.size() + 1);
    }
    static bool IsSupported(const std::string& text) {
        return std::ranges::count(text, '*') <= 1 && text.find('?') == std::string::npos;
    }
    bool Fits(std::string_view name) const {
        if (!hasWildcard_) return name == start_;
        return name.size() >= start_.size() + end_.size() && name.starts_with(start_) &&
               name.ends_with(end_);
    }

  private:
    std::string start_;
    bool hasWildcard_;
    std::string end_;
};

std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// The entries of a folder whose names fit.
class Search final : public platform::KernelObject {
  public:
    explicit Search(const std::string& pattern)
        : names_(NameOf(pattern)), folder_(opendir(platform::ParentOf(pattern).c_str())) {}
    ~Search() override {
        if (folder_ != nullptr) closedir(folder_);
    }
    bool IsOpen() const { return folder_ != nullptr; }

    // False at the end.
    bool Next(WIN32_FIND_DATAW& data) {
        while (const dirent* const entry = readdir(folder_)) {
            const std::u16string name = platform::WideOf(entry->d_name);
            if (!names_.Fits(entry->d_name) || name.size() >= MAX_PATH) continue;
            data = {};
            if (entry->d_type == DT_DIR) data.dwFileAttributes |= FILE_ATTRIBUTE_DIRECTORY;
            if (entry->d_type == DT_LNK) data.dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
            std::ranges::copy(name, data.cFileName);
            return true;
        }
        return false;
    }

  private:
    const NamePattern names_;
    DIR* const folder_;
};

platform::UniqueDescriptor OpenFolder(const std::string& path) {
    return platform::UniqueDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

extern "C" BOOL WINAPI DeleteFileW(LPCWSTR lpFileName) {
    const std::string path = PathOf(lpFileName);
    if (!MayGo(path)) return FALSE;
    return unlink(path.c_str()) == 0 ? TRUE : FailOnPath(errno, path);
}

extern "C" BOOL WINAPI MoveFileExW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName,
                                   DWORD dwFlags) {
    if ((dwFlags & ~DWORD{MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH}) != 0) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    // 1. The old name: a folder may be renamed as well.
    const std::string from = PathOf(lpExistingFileName);
    const std::string to = PathOf(lpNewFileName);
    struct stat info {};
    if (lstat(from.c_str(), &info) != 0) return FailOnPath(errno, from);
    if (S_ISREG(info.st_mode) && !platform::IsReadOnly(info) && !MayGo(from)) return FALSE;
    // 2. The new name.
    const bool replaces = (dwFlags & MOVEFILE_REPLACE_EXISTING) != 0;
    if (replaces && lstat(to.c_str(), &info) == 0 && !MayGo(to)) return FALSE;
    // 3. The folder that has to reach the disk: that it cannot be opened is told before a change.
    platform::UniqueDescriptor folder;
    if ((dwFlags & MOVEFILE_WRITE_THROUGH) != 0) {
        folder = OpenFolder(platform::ParentOf(to));
        if (!folder) return FailOnPath(errno, to);
    }
    // 4. The change of names.
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), replaces ? 0 : RENAME_NOREPLACE)) {
        if (errno == EEXIST) return Fail(ERROR_ALREADY_EXISTS);
        if (errno == EXDEV) return Fail(ERROR_NOT_SAME_DEVICE);
        return FailOnPath(errno, to);
    }
    // A file system without storage has nothing to flush.
    if (folder && fsync(folder.get()) != 0 && errno != EINVAL) return FailWithErrno(errno);
    return TRUE;
}

extern "C" DWORD WINAPI GetFileAttributesW(LPCWSTR lpFileName) {
    const std::string path = PathOf(lpFileName);
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        FailOnPath(errno, path);
        return INVALID_FILE_ATTRIBUTES;
    }
    return platform::AttributesOf(info);
}

extern "C" BOOL WINAPI DecryptFileW(LPCWSTR /*lpFileName*/, DWORD /*dwReserved*/) {
    return platform::Fail(ERROR_NOT_SUPPORTED);
}

extern "C" BOOL WINAPI SetFileAttributesW(LPCWSTR lpFileName, DWORD dwFileAttributes) {
    const std::string path = PathOf(lpFileName);
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return FailOnPath(errno, path);
    const bool readOnly = (dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    // Folders bear the attribute without effect.
    if (!S_ISREG(info.st_mode) || readOnly == platform::IsReadOnly(info)) return TRUE;
    const mode_t mode = readOnly ? info.st_mode & 07555u : (info.st_mode & 07777u) | 0200u;
    return chmod(path.c_str(), mode) == 0 ? TRUE : FailOnPath(errno, path);
}

extern "C" BOOL WINAPI CreateDirectoryW(LPCWSTR lpPathName,
                                        LPSECURITY_ATTRIBUTES lpSecurityAttributes) {
    const bool isPrivate =
        lpSecurityAttributes != nullptr && lpSecurityAttributes->lpSecurityDescriptor != nullptr;
    const std::string path = PathOf(lpPathName);
    if (mkdir(path.c_str(), isPrivate ? 0700 : 0755) != 0) {
        if (errno == EEXIST) return Fail(ERROR_ALREADY_EXISTS);
        return errno == ENOENT ? Fail(ERROR_PATH_NOT_FOUND) : FailWithErrno(errno);
    }
    if (!isPrivate) return TRUE;
    const platform::UniqueDescriptor folder(
        open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder && platform::ApplyAccess(folder.get(), *lpSecurityAttributes)) return TRUE;
    FailWithErrno(errno);
    rmdir(path.c_str());
    return FALSE;
}

extern "C" BOOL WINAPI RemoveDirectoryW(LPCWSTR lpPathName) {
    const std::string path = PathOf(lpPathName);
    const platform::UniqueDescriptor folder(
        open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (folder && !platform::SharingAllows(folder.get(), DELETE)) return FALSE;
    return rmdir(path.c_str()) == 0 ? TRUE : FailOnPath(errno, path);
}

extern "C" HANDLE WINAPI FindFirstFileW(LPCWSTR lpFileName, LPWIN32_FIND_DATAW lpFindFileData) {
    const std::string path = PathOf(lpFileName);
    if (!NamePattern::IsSupported(NameOf(path))) {
        Fail(ERROR_NOT_SUPPORTED);
        return INVALID_HANDLE_VALUE;
    }
    auto search = std::make_shared<Search>(path);
    if (!search->IsOpen()) {
        FailOnPath(errno, path);
        return INVALID_HANDLE_VALUE;
    }
    if (!search->Next(*lpFindFileData)) {
        Fail(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    return platform::OpenHandle(std::move(search));
}

extern "C" BOOL WINAPI FindNextFileW(HANDLE hFindFile, LPWIN32_FIND_DATAW lpFindFileData) {
    const auto search = platform::ObjectOf<Search>(hFindFile);
    if (!search) return FALSE;
    return search->Next(*lpFindFileData) ? TRUE : Fail(ERROR_NO_MORE_FILES);
}

extern "C" BOOL WINAPI FindClose(HANDLE hFindFile) {
    return CloseHandle(hFindFile);
}

extern "C" DWORD WINAPI GetFullPathNameW(LPCWSTR lpFileName, DWORD nBufferLength, LPWSTR lpBuffer,
                                         LPWSTR* lpFilePart) {
    std::error_code error;
    const auto absolute = std::filesystem::absolute(PathOf(lpFileName), error);
    if (error) {
        FailWithErrno(error.value());
        return 0;
    }
    const std::u16string path = platform::WideOf(absolute.lexically_normal().native());
    if (path.size() >= nBufferLength) return static_cast<DWORD>(path.size()) + 1;
    *std::ranges::copy(path, lpBuffer).out = 0;
    if (lpFilePart != nullptr) {
        const std::size_t last = path.rfind(u'/') + 1;
        *lpFilePart = last == path.size() ? nullptr : lpBuffer + last;
    }
    return static_cast<DWORD>(path.size());
}

extern "C" int _waccess(const WCHAR* path, int mode) {
    const std::string native = PathOf(path);
    struct stat info {};
    const int wanted = ((mode & 4) != 0 ? R_OK : 0) | ((mode & 2) != 0 ? W_OK : 0);
    // AT_EACCESS: for the account that the thread acts as.
    if (stat(native.c_str(), &info) != 0 ||
        faccessat(AT_FDCWD, native.c_str(), wanted, AT_EACCESS) != 0) {
        return -1;
    }
    if ((mode & 2) == 0 || !platform::IsReadOnly(info)) return 0;
    errno = EACCES;
    return -1;
}

extern "C" int _wunlink(const WCHAR* path) {
    if (DeleteFileW(path)) return 0;
    const DWORD error = GetLastError();
    errno = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? ENOENT : EACCES;
    return -1;
}
