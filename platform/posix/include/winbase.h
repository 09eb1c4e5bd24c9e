// Older calls that belong to no newer family: copying and moving files, local memory.
#pragma once

#include <minwinbase.h>

#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2

#define FILE_FLAG_WRITE_THROUGH 0x80000000
#define FILE_FLAG_OVERLAPPED 0x40000000
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000
#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000
#define FILE_FLAG_OPEN_REPARSE_POINT 0x00200000

// With these a pipe's server may learn who its client is, but not act as the client.
#define SECURITY_SQOS_PRESENT 0x00100000
#define SECURITY_IDENTIFICATION 0x00010000

#define MOVEFILE_REPLACE_EXISTING 0x00000001
#define MOVEFILE_WRITE_THROUGH 0x00000008

#define MAX_COMPUTERNAME_LENGTH 15

#define LMEM_FIXED 0x0000
#define LMEM_ZEROINIT 0x0040
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)

extern "C" {
// Copies a regular file. At every moment the destination is the old file or the whole new one; a
// failed copy leaves nothing behind. Symbolic links on the way to the destination are followed as
// far as root or the calling thread's account made them, else ERROR_ACCESS_DENIED; a destination
// that is a device or a pipe is written to, and an empty file where the caller may make no other is
// filled. ERROR_FILE_EXISTS when it exists and may not; ERROR_ACCESS_DENIED when it has the
// read-only attribute. A new destination belongs to the caller alone, with the permissions
// that the source gives its owner; an existing one keeps its own and its owner.
WINAPI_EXPORT BOOL WINAPI CopyFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName,
                                    BOOL bFailIfExists);

// Fails with ERROR_NOT_SUPPORTED: no file of this system is encrypted by its file system.
WINAPI_EXPORT BOOL WINAPI DecryptFileW(LPCWSTR lpFileName, DWORD dwReserved);
// Renames within one file system, in one step; else ERROR_NOT_SAME_DEVICE. ERROR_ALREADY_EXISTS
// when the new name exists, unless MOVEFILE_REPLACE_EXISTING is given. With MOVEFILE_WRITE_THROUGH
// the new name has reached the disk on return - the content has where FlushFileBuffers was called
// -, and its folder has to be readable. That call alone can fail after the rename, with a disk's
// error.
WINAPI_EXPORT BOOL WINAPI MoveFileExW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName,
                                      DWORD dwFlags);

// A source of records for the system's log; null with RPC_S_SERVER_UNAVAILABLE where no log daemon
// listens. The server is null: this machine.
WINAPI_EXPORT HANDLE WINAPI RegisterEventSourceW(LPCWSTR lpUNCServerName, LPCWSTR lpSourceName);
// Sends a record of the source to the log daemon: the strings, joined by blanks, as a user's
// message of the level that the type says. Category and number of the event are not told; an
// account and raw data are not supported.
WINAPI_EXPORT BOOL WINAPI ReportEventW(HANDLE hEventLog, WORD wType, WORD wCategory,
                                       DWORD dwEventID, PSID lpUserSid, WORD wNumStrings,
                                       DWORD dwDataSize, LPCWSTR* lpStrings, LPVOID lpRawData);
WINAPI_EXPORT BOOL WINAPI DeregisterEventSource(HANDLE hEventLog);

// The machine's name for networks of old: the first part of its host name in upper case, cut to
// MAX_COMPUTERNAME_LENGTH units. `*nSize` is the size of the buffer, and becomes the name's length;
// with a small buffer (ERROR_BUFFER_OVERFLOW) the size that it needs.
WINAPI_EXPORT BOOL WINAPI GetComputerNameW(LPWSTR lpBuffer, LPDWORD nSize);

// Memory freed with LocalFree, zeroed with LMEM_ZEROINIT; null with ERROR_NOT_ENOUGH_MEMORY. It
// never moves.
WINAPI_EXPORT HLOCAL WINAPI LocalAlloc(UINT uFlags, SIZE_T uBytes);
// Frees what LocalAlloc or a call of the system gave. Returns null. A null pointer is passed over.
WINAPI_EXPORT HLOCAL WINAPI LocalFree(HLOCAL hMem);

// Overwrites memory with zeros in a way that the compiler does not leave out.
WINAPI_EXPORT PVOID WINAPI SecureZeroMemory(PVOID ptr, SIZE_T cnt);
}
