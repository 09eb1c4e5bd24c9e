// Programs and libraries of other processes. Paths are this system's own, with slashes.
#pragma once

#include <winnt.h>

extern "C" {

// The path of a process's program. Returns its length, or 0 with ERROR_INSUFFICIENT_BUFFER for a
// small buffer. The handle needs one of the two rights to query.
WINAPI_EXPORT DWORD WINAPI GetProcessImageFileNameW(HANDLE hProcess, LPWSTR lpImageFileName,
                                                    DWORD nSize);

// The modules of a process, of which its program alone is told: a value for the call below, not an
// address. *lpcbNeeded becomes the bytes of the whole list. The handle needs the rights to query
// information and to read memory, here and below.
WINAPI_EXPORT BOOL WINAPI EnumProcessModules(HANDLE hProcess, HMODULE* lphModule, DWORD cb,
                                             LPDWORD lpcbNeeded);
// The path of such a module; null names the program. Returns its length; in a small buffer it is
// cut, with ERROR_INSUFFICIENT_BUFFER.
WINAPI_EXPORT DWORD WINAPI GetModuleFileNameExW(HANDLE hProcess, HMODULE hModule, LPWSTR lpFilename,
                                                DWORD nSize);
}
