// The calling thread's last error.
#pragma once

#include <minwindef.h>

extern "C" {
WINAPI_EXPORT DWORD WINAPI GetLastError();
WINAPI_EXPORT void WINAPI SetLastError(DWORD dwErrCode);
}
