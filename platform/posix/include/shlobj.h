// Well-known folders, and the rights of the user.
#pragma once

#include <winnt.h>

#define CSIDL_COMMON_APPDATA 0x0023
#define SHGFP_TYPE_CURRENT 0

extern "C" {
// The path, without a trailing separator, in a buffer of MAX_PATH characters. Knows
// CSIDL_COMMON_APPDATA, the machine's folder for programs' data, alone; others are E_INVALIDARG.
WINAPI_EXPORT HRESULT WINAPI SHGetFolderPathW(HWND hwnd, int csidl, HANDLE hToken, DWORD dwFlags,
                                              LPWSTR pszPath);

// Nonzero when the calling thread's account is an administrator of the machine.
WINAPI_EXPORT BOOL WINAPI IsUserAnAdmin();
}
