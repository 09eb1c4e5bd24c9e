// Logon sessions. The machine's folder holds them in a folder "sessions": a file for each, named by
// the session's number, whose first line is the logged-on user's account name or number. A process
// belongs to the lowest session of its user. Without that folder a process belongs to the session
// that XDG_SESSION_ID in its environment tells. Every other process is in session 0.
#pragma once

#include <winnt.h>

#define WTS_CURRENT_SERVER_HANDLE (static_cast<HANDLE>(nullptr))

struct WTS_PROCESS_INFOW {
    DWORD SessionId;
    DWORD ProcessId;
    LPWSTR pProcessName;  // of the program's file, without folder
    PVOID pUserSid;       // always null here
};
using PWTS_PROCESS_INFOW = WTS_PROCESS_INFOW*;

extern "C" {

// Every live process of this machine, in the order of their numbers. Version is 1. The list is
// freed with WTSFreeMemory.
WINAPI_EXPORT BOOL WINAPI WTSEnumerateProcessesW(HANDLE hServer, DWORD Reserved, DWORD Version,
                                                 PWTS_PROCESS_INFOW* ppProcessInfo, DWORD* pCount);
WINAPI_EXPORT void WINAPI WTSFreeMemory(PVOID pMemory);

// A token, closed with CloseHandle, of the user logged on to a session.
// ERROR_PRIVILEGE_NOT_HELD unless the process may act as any account, or the user is its own;
// ERROR_CTX_WINSTATION_NOT_FOUND when there is no such session, ERROR_NO_TOKEN when it has no user.
WINAPI_EXPORT BOOL WINAPI WTSQueryUserToken(ULONG SessionId, PHANDLE phToken);
}
