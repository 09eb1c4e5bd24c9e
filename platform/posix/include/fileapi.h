// Files and folders. Paths may use both slashes. A missing file is ERROR_FILE_NOT_FOUND, a missing
// folder on the way to it ERROR_PATH_NOT_FOUND.
#pragma once

#include <minwinbase.h>

#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4

#define FILE_TYPE_UNKNOWN 0x0000
#define FILE_TYPE_DISK 0x0001
#define FILE_TYPE_CHAR 0x0002
#define FILE_TYPE_PIPE 0x0003

#define INVALID_FILE_ATTRIBUTES (static_cast<DWORD>(-1))

struct BY_HANDLE_FILE_INFORMATION {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD dwVolumeSerialNumber;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD nNumberOfLinks;
    DWORD nFileIndexHigh;
    DWORD nFileIndexLow;
};
using LPBY_HANDLE_FILE_INFORMATION = BY_HANDLE_FILE_INFORMATION*;

extern "C" {
// Opens or creates a file; INVALID_HANDLE_VALUE on failure. The share mode is honoured between the
// opens of all processes that use this call, and by the calls that delete, rename or copy over a
// file (ERROR_SHARING_VIOLATION). CREATE_ALWAYS and OPEN_ALWAYS set ERROR_ALREADY_EXISTS, with a
// valid handle, when the file was there. A new file belongs to its creator alone, unless the
// security attributes carry a null access list. FILE_APPEND_DATA without FILE_WRITE_DATA makes
// every write an append, also beside the appends of others. The name of a pipe connects to the
// pipe. With FILE_FLAG_BACKUP_SEMANTICS an existing folder is opened, too, to be held or asked
// about; with FILE_FLAG_OPEN_REPARSE_POINT a symbolic link is refused (ERROR_CANTOPEN). WRITE_DAC
// is the owner's and root's.
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
// The attributes, the size and the number of names, which is 1 for a folder; nothing else is told.
WINAPI_EXPORT BOOL WINAPI
GetFileInformationByHandle(HANDLE hFile, LPBY_HANDLE_FILE_INFORMATION lpFileInformation);
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

// A new folder belongs to its creator. Without security attributes others may look into it; with
// them it is its owner's alone, and what they allow others besides.
WINAPI_EXPORT BOOL WINAPI CreateDirectoryW(LPCWSTR lpPathName,
                                           LPSECURITY_ATTRIBUTES lpSecurityAttributes);
// Removes an empty folder: ERROR_DIR_NOT_EMPTY for another one, ERROR_SHARING_VIOLATION while
// somebody has it open who forbids it.
WINAPI_EXPORT BOOL WINAPI RemoveDirectoryW(LPCWSTR lpPathName);

// The entries of a folder, "." and ".." among them, in no order. The pattern is the folder, a
// separator and a name in which one "*" may stand for any characters; other wildcards are
// ERROR_NOT_SUPPORTED. INVALID_HANDLE_VALUE with ERROR_FILE_NOT_FOUND when none fits; the end is
// FALSE with ERROR_NO_MORE_FILES. Only the name and the attribute of a folder or a link are told.
WINAPI_EXPORT HANDLE WINAPI FindFirstFileW(LPCWSTR lpFileName, LPWIN32_FIND_DATAW lpFindFileData);
WINAPI_EXPORT BOOL WINAPI FindNextFileW(HANDLE hFindFile, LPWIN32_FIND_DATAW lpFindFileData);
WINAPI_EXPORT BOOL WINAPI FindClose(HANDLE hFindFile);

// The absolute path, without "." and "..". Returns its length, or with a small buffer the size that
// it needs. *lpFilePart becomes the start of its last part, or null when there is none.
WINAPI_EXPORT DWORD WINAPI GetFullPathNameW(LPCWSTR lpFileName, DWORD nBufferLength,
                                            LPWSTR lpBuffer, LPWSTR* lpFilePart);

// The process's folder of temporary files, whatever account the calling thread acts as; it ends
// with a separator. Other accounts may pass through it to a name that they know, and nothing else.
// Returns its length, or with a small buffer the size that it needs; 0 when there is no such folder
// and none can be made, or when another account could replace it (ERROR_ACCESS_DENIED).
WINAPI_EXPORT DWORD WINAPI GetTempPathW(DWORD nBufferLength, LPWSTR lpBuffer);
// With number 0: creates a new empty file in the folder, named by up to three characters of the
// prefix and a number, which only its owner may use, and returns the number. With another number:
// only makes the name. `lpTempFileName` takes MAX_PATH characters. 0 on failure.
WINAPI_EXPORT UINT WINAPI GetTempFileNameW(LPCWSTR lpPathName, LPCWSTR lpPrefixString, UINT uUnique,
                                           LPWSTR lpTempFileName);
}
