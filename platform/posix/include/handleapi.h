// Handles of the process.
#pragma once

#include <winnt.h>

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))

extern "C" {
// Gives a handle back; the object lives on while another handle names it. Fails with
// ERROR_INVALID_HANDLE for a value that is no open handle.
WINAPI_EXPORT BOOL WINAPI CloseHandle(HANDLE hObject);
}
