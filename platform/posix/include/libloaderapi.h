// Loadable libraries.
#pragma once

#include <winnt.h>

#define GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT 0x00000002
#define GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS 0x00000004

extern "C" {
// Loads a library, or counts one more use of a loaded one. A name without an extension gets the
// system's own; a name without a folder is looked for beside the program and then on the system's
// path. The names of Windows' own libraries give this layer. Fails with ERROR_MOD_NOT_FOUND, or
// with ERROR_BAD_EXE_FORMAT for a file that is no library.
WINAPI_EXPORT HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName);
WINAPI_EXPORT HMODULE WINAPI LoadLibraryA(LPCSTR lpLibFileName);
WINAPI_EXPORT BOOL WINAPI FreeLibrary(HMODULE hLibModule);
// An export by its name; null with ERROR_PROC_NOT_FOUND. Names by number are not supported.
WINAPI_EXPORT FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName);

// A loaded library without counting a use of it; null names the program.
WINAPI_EXPORT HMODULE WINAPI GetModuleHandleW(LPCWSTR lpModuleName);
// The library or program in which an address lies, without counting a use of it: both flags must be
// given.
WINAPI_EXPORT BOOL WINAPI GetModuleHandleExW(DWORD dwFlags, LPCWSTR lpModuleName,
                                             HMODULE* phModule);
// The full path of a library, or of the program for null. Returns its length; with a small buffer
// the path is cut, and the result is the buffer's size with ERROR_INSUFFICIENT_BUFFER.
WINAPI_EXPORT DWORD WINAPI GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize);
}
