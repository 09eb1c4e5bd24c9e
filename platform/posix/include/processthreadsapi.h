// Processes and threads.
#pragma once

#include <winnt.h>

extern "C" {
WINAPI_EXPORT DWORD WINAPI GetCurrentProcessId();
WINAPI_EXPORT DWORD WINAPI GetCurrentThreadId();
// Constants that stand for the calling process and thread; they need not be closed.
WINAPI_EXPORT HANDLE WINAPI GetCurrentProcess();
WINAPI_EXPORT HANDLE WINAPI GetCurrentThread();

// Opens a process with rights out of PROCESS_QUERY_INFORMATION, PROCESS_QUERY_LIMITED_INFORMATION,
// PROCESS_VM_READ and SYNCHRONIZE; with the last its end can be waited for. Null with
// ERROR_INVALID_PARAMETER when there is no such process, ERROR_ACCESS_DENIED when it is not the
// caller's to look at.
WINAPI_EXPORT HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle,
                                        DWORD dwProcessId);
// When a process started - counted from the system's own start - and the time that it has spent in
// the kernel and outside. The time of its end stays 0. The handle needs one of the two rights to
// query.
WINAPI_EXPORT BOOL WINAPI GetProcessTimes(HANDLE hProcess, LPFILETIME lpCreationTime,
                                          LPFILETIME lpExitTime, LPFILETIME lpKernelTime,
                                          LPFILETIME lpUserTime);
// The token of a process, whose handle needs one of the two rights to query.
WINAPI_EXPORT BOOL WINAPI OpenProcessToken(HANDLE ProcessHandle, DWORD DesiredAccess,
                                           PHANDLE TokenHandle);
// The token that the calling thread has beside its process's own; ERROR_NO_TOKEN when it has none.
// One by which it only identifies a client has to be opened as the process itself (else
// ERROR_BAD_IMPERSONATION_LEVEL).
// The thread is GetCurrentThread(). After ImpersonateNamedPipeClient the token is the client's.
WINAPI_EXPORT BOOL WINAPI OpenThreadToken(HANDLE ThreadHandle, DWORD DesiredAccess, BOOL OpenAsSelf,
                                          PHANDLE TokenHandle);
}
