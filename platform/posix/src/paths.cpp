#include "paths.h"

#include <winnt.h>

#include <cerrno>

#include "text.h"

namespace platform {

std::string PathOf(LPCWSTR argument) {
    return argument == nullptr ? "" : NativePath(argument);
}

std::string ParentOf(const std::string& path) {
    const std::size_t end = path.find_last_not_of('/');
    const std::size_t slash = end == std::string::npos ? end : path.rfind('/', end);
    if (slash == std::string::npos) return path.starts_with('/') ? "/" : ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

DWORD ErrorOnPath(int error, const std::string& path) {
    struct stat info {};
    if (error == ENOENT && (path.empty() || stat(ParentOf(path).c_str(), &info) != 0)) {
        return ERROR_PATH_NOT_FOUND;
    }
    return ErrorOfErrno(error);
}

bool IsReadOnly(const struct stat& info) {
    return S_ISREG(info.st_mode) && (info.st_mode & 0222) == 0;
}

bool IsSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool IsFileAt(const std::string& path, int descriptor) {
    struct stat opened {};
    struct stat named {};
    return fstat(descriptor, &opened) == 0 && lstat(path.c_str(), &named) == 0 &&
           IsSameFile(opened, named);
}

DWORD AttributesOf(const struct stat& info) {
    if (S_ISDIR(info.st_mode)) return FILE_ATTRIBUTE_DIRECTORY;
    if (!S_ISREG(info.st_mode)) return FILE_ATTRIBUTE_DEVICE;
    return IsReadOnly(info) ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
}

}  // namespace platform
