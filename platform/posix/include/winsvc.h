// The service manager. The machine's services are the keys below
// HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Services. Here a service runs from its start to its
// stop as far as every process of the machine can see - its key has a value "IsRunning" meanwhile -
// but no program is started for it.
//
// Everybody may ask for a service's state; what changes something is the administrator's
// (ERROR_ACCESS_DENIED). A handle can do what it was opened for (ERROR_ACCESS_DENIED). Names
// compare without case.
#pragma once

#include <winnt.h>

#define SC_MANAGER_CONNECT 0x0001
#define SC_MANAGER_CREATE_SERVICE 0x0002
#define SERVICE_QUERY_STATUS 0x0004
#define SERVICE_START 0x0010
#define SERVICE_STOP 0x0020

#define SERVICE_WIN32_OWN_PROCESS 0x00000010
#define SERVICE_DEMAND_START 0x00000003
#define SERVICE_ERROR_NORMAL 0x00000001
#define SERVICE_STOPPED 0x00000001
#define SERVICE_RUNNING 0x00000004
#define SERVICE_ACCEPT_STOP 0x00000001
#define SERVICE_CONTROL_STOP 0x00000001

struct SERVICE_STATUS {
    DWORD dwServiceType;
    DWORD dwCurrentState;  // SERVICE_RUNNING or SERVICE_STOPPED
    DWORD dwControlsAccepted;
    DWORD dwWin32ExitCode;
    DWORD dwServiceSpecificExitCode;
    DWORD dwCheckPoint;
    DWORD dwWaitHint;
};
using LPSERVICE_STATUS = SERVICE_STATUS*;

extern "C" {

// The manager of this machine's active services: both names are null, others are not supported.
WINAPI_EXPORT SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName,
                                              DWORD dwDesiredAccess);
// ERROR_SERVICE_DOES_NOT_EXIST; ERROR_INVALID_NAME for a name that no service can have.
WINAPI_EXPORT SC_HANDLE WINAPI OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName,
                                            DWORD dwDesiredAccess);
// Makes a service and opens it. ERROR_SERVICE_EXISTS. Load groups, tags, dependencies and accounts
// are not supported; names to show, programs and ways to start are not kept.
WINAPI_EXPORT SC_HANDLE WINAPI CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName,
                                              LPCWSTR lpDisplayName, DWORD dwDesiredAccess,
                                              DWORD dwServiceType, DWORD dwStartType,
                                              DWORD dwErrorControl, LPCWSTR lpBinaryPathName,
                                              LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId,
                                              LPCWSTR lpDependencies, LPCWSTR lpServiceStartName,
                                              LPCWSTR lpPassword);
WINAPI_EXPORT BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject);

WINAPI_EXPORT BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus);
// ERROR_SERVICE_ALREADY_RUNNING. Arguments are not supported.
WINAPI_EXPORT BOOL WINAPI StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs,
                                        LPCWSTR* lpServiceArgVectors);
// SERVICE_CONTROL_STOP is known (else ERROR_INVALID_SERVICE_CONTROL). ERROR_SERVICE_NOT_ACTIVE.
WINAPI_EXPORT BOOL WINAPI ControlService(SC_HANDLE hService, DWORD dwControl,
                                         LPSERVICE_STATUS lpServiceStatus);
}
