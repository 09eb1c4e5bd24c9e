// Handles of the process.
#pragma once

#include <winnt.h>

#define DUPLICATE_SAME_ACCESS 0x00000002

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

extern "C" {
// Gives a handle back; the object lives on while another handle names it. Fails with
// ERROR_INVALID_HANDLE for a value that is no open handle.
WINAPI_EXPORT BOOL WINAPI CloseHandle(HANDLE hObject);
// Gives the object of a handle a second one, with the same rights. Both processes are the calling
// one, and the only option is DUPLICATE_SAME_ACCESS.
WINAPI_EXPORT BOOL WINAPI DuplicateHandle(HANDLE hSourceProcessHandle, HANDLE hSourceHandle,
                                          HANDLE hTargetProcessHandle, LPHANDLE lpTargetHandle,
                                          DWORD dwDesiredAccess, BOOL bInheritHandle,
                                          DWORD dwOptions);
}
