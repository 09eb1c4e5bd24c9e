// Files and folders. Paths may use both slashes. A missing file is ERROR_FILE_NOT_FOUND, a missing
// folder on the way to it ERROR_PATH_NOT_FOUND.
#pragma once

#include <minwinbase.h>

#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5

#define FILE_TYPE_UNKNOWN 0x0000
#define FILE_TYPE_DISK 0x0001
#define FILE_TYPE_CHAR 0x0002
#define FILE_TYPE_PIPE 0x0003

#define INVALID_FILE_ATTRIBUTES (static_cast<DWORD>(-1))

extern "C" {
// Opens or creates a file; INVALID_HANDLE_VALUE on failure. The share mode is honoured between the
// opens of all processes that use this call, and by the calls that delete, rename or copy over a
// file (ERROR_SHARING_VIOLATION). CREATE_ALWAYS and OPEN_ALWAYS set ERROR_ALREADY_EXISTS, with a
// valid handle, when the file was there. A new file belongs to its creator alone, unless the
// security attributes carry a null access list. FILE_APPEND_DATA without FILE_WRITE_DATA makes
// every write an append, also beside the appends of others. The name of a pipe connects to the
// pipe.
WINAPI_EXPORT HANDLE WINAPI CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess,
                                        DWORD dwShareMode,
                                        LPSECURITY_ATTRIBUTES lpSecurityAttributes,
                                        DWORD dwCreationDisposition, DWORD dwFlagsAndAttributes,
                                        HANDLE hTemplateFile);
// Reads up to a number of bytes; none, with success, at the end of a file.
WINAPI_EXPORT BOOL WINAPI ReadFile(HANDLE hFile, LPVOID lpBuffer, DWORD nNumberOfBytesToRead,
                                   LPDWORD lpNumberOfBytesRead, LPOVERLAPPED lpOverlapped);
// Writes all bytes or fails.
WINAPI_EXPORT BOOL WINAPI WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite,
                                    LPDWORD lpNumberOfBytesWritten, LPOVERLAPPED lpOverlapped);
WINAPI_EXPORT BOOL WINAPI FlushFileBuffers(HANDLE hFile);
// FILE_TYPE_DISK for a regular file or a folder, FILE_TYPE_CHAR for a terminal or another device,
// FILE_TYPE_PIPE for a pipe or a socket; FILE_TYPE_UNKNOWN for anything else, and on failure.
WINAPI_EXPORT DWORD WINAPI GetFileType(HANDLE hFile);
WINAPI_EXPORT BOOL WINAPI GetFileSizeEx(HANDLE hFile, PLARGE_INTEGER lpFileSize);
WINAPI_EXPORT BOOL WINAPI SetFilePointerEx(HANDLE hFile, LARGE_INTEGER liDistanceToMove,
                                           PLARGE_INTEGER lpNewFilePointer, DWORD dwMoveMethod);
// Cuts or extends the file at the position of its pointer.
WINAPI_EXPORT BOOL WINAPI SetEndOfFile(HANDLE hFile);

// ERROR_ACCESS_DENIED for a folder and for a file with the read-only attribute.
WINAPI_EXPORT BOOL WINAPI DeleteFileW(LPCWSTR lpFileName);
// FILE_ATTRIBUTE_READONLY stands for a file that nobody may write.
WINAPI_EXPORT DWORD WINAPI GetFileAttributesW(LPCWSTR lpFileName);
WINAPI_EXPORT BOOL WINAPI SetFileAttributesW(LPCWSTR lpFileName, DWORD dwFileAttributes);

// A new folder belongs to its creator, and others may look into it.
WINAPI_EXPORT BOOL WINAPI CreateDirectoryW(LPCWSTR lpPathName,
                                           LPSECURITY_ATTRIBUTES lpSecurityAttributes);

// The absolute path, without "." and "..". Returns its length, or with a small buffer the size that
// it needs. *lpFilePart becomes the start of its last part, or null when there is none.
WINAPI_EXPORT DWORD WINAPI GetFullPathNameW(LPCWSTR lpFileName, DWORD nBufferLength,
                                            LPWSTR lpBuffer, LPWSTR* lpFilePart);

// The folder of temporary files of the calling thread's account, which no other account may enter;
// it ends with a separator. Returns its length, or with a small buffer the size that it needs; 0
// when there is no such folder and none can be made.
WINAPI_EXPORT DWORD WINAPI GetTempPathW(DWORD nBufferLength, LPWSTR lpBuffer);
// With number 0: creates a new empty file in the folder, named by up to three characters of the
// prefix and a number, which only its owner may use, and returns the number. With another number:
// only makes the name. `lpTempFileName` takes MAX_PATH characters. 0 on failure.
WINAPI_EXPORT UINT WINAPI GetTempFileNameW(LPCWSTR lpPathName, LPCWSTR lpPrefixString, UINT uUnique,
                                           LPWSTR lpTempFileName);
}
