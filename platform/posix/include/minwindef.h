// The basic types of the Windows SDK, with the sizes that Windows gives them on a 64-bit system.
// LONG, ULONG and DWORD have 32 bits there; a wide character is a UTF-16 unit.
#pragma once

#include <cstddef>
#include <cstdint>

#define WINAPI
#define WINAPI_EXPORT __attribute__((visibility("default")))

using BOOL = int;
using BOOLEAN = unsigned char;
using BYTE = unsigned char;
using UCHAR = unsigned char;
using CHAR = char;
using WCHAR = char16_t;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using INT = int;
using UINT = unsigned int;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using PULONG = ULONG*;
using DWORD = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORD64 = std::uint64_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using LSTATUS = LONG;
using HRESULT = LONG;
using LANGID = WORD;
using LCID = DWORD;
using REGSAM = DWORD;
using ACCESS_MASK = DWORD;

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using PBYTE = BYTE*;
using LPBYTE = BYTE*;
using LPBOOL = BOOL*;
using PDWORD = DWORD*;
using LPDWORD = DWORD*;
using PLONG = LONG*;
using LPSTR = CHAR*;
using LPCSTR = const CHAR*;
using LPWSTR = WCHAR*;
using PWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PCWSTR = const WCHAR*;
using LPCCH = const CHAR*;
using LPCWCH = const WCHAR*;

using HANDLE = void*;
using PHANDLE = HANDLE*;
using LPHANDLE = HANDLE*;
using HLOCAL = void*;
using HINSTANCE = struct HINSTANCE__*;
using HMODULE = HINSTANCE;
using HKEY = struct HKEY__*;
using PHKEY = HKEY*;
using SC_HANDLE = struct SC_HANDLE__*;
using HWND = struct HWND__*;
using FARPROC = std::intptr_t (*)();

#define FALSE 0
#define TRUE 1
#define MAX_PATH 260

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
using LPFILETIME = FILETIME*;

#define LOBYTE(w) (static_cast<BYTE>((w)&0xff))
#define HIBYTE(w) (static_cast<BYTE>(((w) >> 8) & 0xff))
#define LOWORD(l) (static_cast<WORD>((l)&0xffff))
