// Paths as the file calls take them, and what goes wrong on the way to a file.
#pragma once

#include <minwindef.h>
#include <sys/stat.h>

#include <string>

namespace platform {

// The native form of a path argument; a null one is an empty path, which names nothing.
std::string PathOf(LPCWSTR argument);

// The folder that a path's last part stands in.
std::string ParentOf(const std::string& path);

// Sets the last error for a failed call on a path, and returns FALSE: where nothing was found it
// tells a missing file from a missing folder.
BOOL FailOnPath(int error, const std::string& path);

// The read-only attribute: a regular file that nobody may write.
bool IsReadOnly(const struct stat& info);

// The attributes of a file or folder.
DWORD AttributesOf(const struct stat& info);

}  // namespace platform
