// Processes and threads.
#pragma once

#include <winnt.h>

extern "C" {
WINAPI_EXPORT DWORD WINAPI GetCurrentProcessId();
WINAPI_EXPORT DWORD WINAPI GetCurrentThreadId();
// Constants that stand for the calling process and thread; they need not be closed.
WINAPI_EXPORT HANDLE WINAPI GetCurrentProcess();
WINAPI_EXPORT HANDLE WINAPI GetCurrentThread();
}
