// Files as memory.
#pragma once

#include <minwinbase.h>

#define FILE_MAP_WRITE 0x0002
#define FILE_MAP_READ 0x0004

extern "C" {
// A mapping of a whole file, as large as the file is now (size 0; others are not supported). Fails
// with ERROR_FILE_INVALID for an empty file. Mappings without a file and named ones
// are not supported.
WINAPI_EXPORT HANDLE WINAPI CreateFileMappingW(HANDLE hFile,
                                               LPSECURITY_ATTRIBUTES lpFileMappingAttributes,
                                               DWORD flProtect, DWORD dwMaximumSizeHigh,
                                               DWORD dwMaximumSizeLow, LPCWSTR lpName);
// A view of the whole mapping (offset and size 0; others are not supported). It stays valid when
// the mapping and the file are closed.
WINAPI_EXPORT LPVOID WINAPI MapViewOfFile(HANDLE hFileMappingObject, DWORD dwDesiredAccess,
                                          DWORD dwFileOffsetHigh, DWORD dwFileOffsetLow,
                                          SIZE_T dwNumberOfBytesToMap);
WINAPI_EXPORT BOOL WINAPI UnmapViewOfFile(LPCVOID lpBaseAddress);

// Keeps the pages that hold these bytes in physical memory. They are not counted: one call of the
// other lets them go. Beyond the account's limit it fails with ERROR_WORKING_SET_QUOTA.
WINAPI_EXPORT BOOL WINAPI VirtualLock(LPVOID lpAddress, SIZE_T dwSize);
WINAPI_EXPORT BOOL WINAPI VirtualUnlock(LPVOID lpAddress, SIZE_T dwSize);
}
