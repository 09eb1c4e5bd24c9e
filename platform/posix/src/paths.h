// Paths as the file calls take them, and what goes wrong on the way to a file.
#pragma once

#include <minwindef.h>
#include <sys/stat.h>

#include <string>

#include "last_error.h"

namespace platform {

// The native form of a path argument; a null one is an empty path, which names nothing.
std::string PathOf(LPCWSTR argument);

// The folder that a path's last part stands in.
std::string ParentOf(const std::string& path);

// The code for a failed call on a path: where nothing was found it tells a missing file from a
// missing folder.
DWORD ErrorOnPath(int error, const std::string& path);

// Sets it as the last error and returns the empty value.
template <typename Result = BOOL>
Result FailOnPath(int error, const std::string& path) {
    return Fail<Result>(ErrorOnPath(error, path));
}

// The read-only attribute: a regular file that nobody may write.
bool IsReadOnly(const struct stat& info);

bool IsSameFile(const struct stat& one, const struct stat& other);

// Whether the path names the opened file - and no other that came there since.
bool IsFileAt(const std::string& path, int descriptor);

// The attributes of a file or folder.
DWORD AttributesOf(const struct stat& info);

}  // namespace platform
