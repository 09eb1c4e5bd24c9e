// Mutexes and events, between threads and - by their names - between processes. A named object
// exists while some process has it open; when the last one closes it or dies, it is gone.
#pragma once

#include <minwinbase.h>

#define INFINITE 0xFFFFFFFF
#define WAIT_OBJECT_0 0UL
#define WAIT_ABANDONED 0x00000080UL
#define WAIT_TIMEOUT 258UL
#define WAIT_FAILED 0xFFFFFFFFUL

#define MUTEX_MODIFY_STATE MUTANT_QUERY_STATE

extern "C" {
// Each creates the object, or opens the existing one of that name with ERROR_ALREADY_EXISTS as last
// error; then the initial state is ignored. A name that belongs to an object of another kind fails
// with ERROR_INVALID_HANDLE. A null name makes an object of this process.
WINAPI_EXPORT HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES lpMutexAttributes,
                                         BOOL bInitialOwner, LPCWSTR lpName);
WINAPI_EXPORT HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                                         BOOL bInitialState, LPCWSTR lpName);
// Null with ERROR_FILE_NOT_FOUND when no such object exists.
WINAPI_EXPORT HANDLE WINAPI OpenMutexW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName);
WINAPI_EXPORT HANDLE WINAPI OpenEventW(DWORD dwDesiredAccess, BOOL bInheritHandle, LPCWSTR lpName);

// The owner gives back one of the waits that it won; another thread's try is ERROR_NOT_OWNER.
WINAPI_EXPORT BOOL WINAPI ReleaseMutex(HANDLE hMutex);
WINAPI_EXPORT BOOL WINAPI SetEvent(HANDLE hEvent);
WINAPI_EXPORT BOOL WINAPI ResetEvent(HANDLE hEvent);

// Waits for an object, for a number of milliseconds at most. A mutex then belongs to the calling
// thread; WAIT_ABANDONED says that its owner died without giving it back. A wait resets an event
// without manual reset.
WINAPI_EXPORT DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds);
WINAPI_EXPORT void WINAPI Sleep(DWORD dwMilliseconds);
}
