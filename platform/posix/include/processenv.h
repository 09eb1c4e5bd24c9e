// The process's environment, current folder and standard streams. Variables are found by their
// exact name first, then without regard to case.
#pragma once

#include <winnt.h>

#define STD_INPUT_HANDLE (static_cast<DWORD>(-10))
#define STD_OUTPUT_HANDLE (static_cast<DWORD>(-11))
#define STD_ERROR_HANDLE (static_cast<DWORD>(-12))

extern "C" {
// Replaces each %NAME% by the variable's value; a name that is not set stays as it is. Returns the
// characters of the result, terminator included, also when the buffer is too small for it.
WINAPI_EXPORT DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR lpSrc, LPWSTR lpDst, DWORD nSize);
// A null value removes the variable.
WINAPI_EXPORT BOOL WINAPI SetEnvironmentVariableW(LPCWSTR lpName, LPCWSTR lpValue);
// Sets a variable for this process's own getenv and for the calls above; an empty value removes it.
// Returns 0 or an errno value. (Of Microsoft's C library, where <cstdlib> declares it.)
WINAPI_EXPORT int _putenv_s(const char* varname, const char* value);

// The process's current folder, without a separator at its end unless it is a root. Returns its
// length, or with a small buffer the size that it needs, terminator included; 0 on failure.
WINAPI_EXPORT DWORD WINAPI GetCurrentDirectoryW(DWORD nBufferLength, LPWSTR lpBuffer);

// A handle of the process, which need not be closed.
WINAPI_EXPORT HANDLE WINAPI GetStdHandle(DWORD nStdHandle);
}
