// Share modes of open files, seen by every process that opens files through this layer.
#pragma once

#include <fileapi.h>

namespace platform {

// Announces an open file: how it is used (of FILE_READ_DATA, FILE_WRITE_DATA, FILE_APPEND_DATA and
// DELETE) and what others may do meanwhile (FILE_SHARE_...). It stands until the descriptor is
// closed. False, with ERROR_SHARING_VIOLATION, when another open forbids this one or is forbidden
// by it.
bool TakeShare(int descriptor, DWORD access, DWORD share);

// Whether the opens that stand allow such a use of the file; false with ERROR_SHARING_VIOLATION.
bool SharingAllows(int descriptor, DWORD access);

}  // namespace platform
