// Files as the client opens, reads and writes them.
#pragma once

#include <functional>
#include <string>

#include "common/handles.h"
#include "common/text.h"

// The largest file that is read, in bytes: its double, the room to decrypt it, has 32 bits.
inline constexpr LONGLONG kMaxFileSize = 0x7FFFFFFF;

// Calls `attempt`, which returns false with the last error set, until it succeeds: for about a
// second while the file is in use or its deletion is under way (ERROR_ACCESS_DENIED,
// ERROR_SHARING_VIOLATION, ERROR_LOCK_VIOLATION), and once for any other error.
bool RetryWhileBusy(const std::function<bool()>& attempt);

// Opens a file; `access` and `disposition` are CreateFileW's. Others may read and write it
// meanwhile. Where the file may be made, the call is retried while one of that name is busy. None
// when it is no file on a disk - a device, a pipe, a folder - or is larger than kMaxFileSize.
UniqueHandle OpenDiskFile(const WString& path, DWORD access, DWORD disposition);

// Whether an opened file is one on a disk - no device, no pipe - of kMaxFileSize at most.
bool IsDiskFile(HANDLE file);

// Reads the file from its start to its end. False when that fails.
bool ReadAll(HANDLE file, std::string& content);

// Writes the bytes at the file's position. False when not all of them could be written.
bool WriteAll(HANDLE file, const void* bytes, std::size_t size);

// Goes to the start of the file.
bool GoToStart(HANDLE file);

// Makes the bytes the whole content of the file.
bool Rewrite(HANDLE file, const void* bytes, std::size_t size);
