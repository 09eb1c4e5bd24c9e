// A snapshot of the machine's processes.
#pragma once

#include <winnt.h>

#define TH32CS_SNAPPROCESS 0x00000002

struct PROCESSENTRY32W {
    DWORD dwSize;  // set by the caller
    DWORD cntUsage;
    DWORD th32ProcessID;
    ULONG_PTR th32DefaultHeapID;
    DWORD th32ModuleID;
    DWORD cntThreads;
    DWORD th32ParentProcessID;
    LONG pcPriClassBase;
    DWORD dwFlags;
    WCHAR szExeFile[MAX_PATH];  // of the program's file, without folder
};
using LPPROCESSENTRY32W = PROCESSENTRY32W*;

extern "C" {

// Only TH32CS_SNAPPROCESS is supported. Closed with CloseHandle; INVALID_HANDLE_VALUE on failure.
WINAPI_EXPORT HANDLE WINAPI CreateToolhelp32Snapshot(DWORD dwFlags, DWORD th32ProcessID);
// The first and each further process of a snapshot; ERROR_NO_MORE_FILES behind the last. The entry
// of the calling process names the parent that started it, also when that has ended meanwhile. Of
// an entry the two process numbers and the name are filled, the rest is zero.
WINAPI_EXPORT BOOL WINAPI Process32FirstW(HANDLE hSnapshot, LPPROCESSENTRY32W lppe);
WINAPI_EXPORT BOOL WINAPI Process32NextW(HANDLE hSnapshot, LPPROCESSENTRY32W lppe);
}
