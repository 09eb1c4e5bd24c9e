// Files as memory.
#pragma once

#include <minwinbase.h>

#define FILE_MAP_WRITE 0x0002
#define FILE_MAP_READ 0x0004

extern "C" {
// A mapping of a whole file (size 0: as large as the file is now; larger: the file grows). Fails
// with ERROR_FILE_INVALID for an empty file without a size. Mappings without a file and named ones
// are not supported.
WINAPI_EXPORT HANDLE WINAPI CreateFileMappingW(HANDLE hFile,
                                               LPSECURITY_ATTRIBUTES lpFileMappingAttributes,
                                               DWORD flProtect, DWORD dwMaximumSizeHigh,
                                               DWORD dwMaximumSizeLow, LPCWSTR lpName);
// A view from an offset (a multiple of 64 KiB) of a number of bytes (0: to the end). It stays
// valid when the mapping and the file are closed.
WINAPI_EXPORT LPVOID WINAPI MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess,
                                          DWORD dwFileOffsetHigh, DWORD dwFileOffsetLow,
                                          SIZE_T dwNumberOfBytesToMap);
WINAPI_EXPORT BOOL WINAPI UnmapViewOfFile(LPCVOID lpBaseAddress);

// Keeps the pages that hold these bytes in physical memory. They are not counted: one call of the
// other lets them go. Beyond the account's limit it fails with ERROR_WORKING_SET_QUOTA.
WINAPI_EXPORT BOOL WINAPI VirtualLock(LPVOID lpAddress, SIZE_T dwSize);
WINAPI_EXPORT BOOL WINAPI VirtualUnlock(LPVOID lpAddress, SIZE_T dwSize);
}
