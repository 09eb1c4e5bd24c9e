// The registry. One hive holds the machine's keys, and one each account's; a hive is a file of the
// endpoint that belongs to the account which made it, and that account's rights decide who may
// write. Names compare without case and keep the case they were made with; subkeys come in the
// order of their names, values in the order in which they were made.
//
// Every call returns its Windows error code; the last error is of no meaning here. Beyond those
// that are named below: ERROR_INVALID_HANDLE; ERROR_INVALID_PARAMETER; ERROR_ACCESS_DENIED when the
// handle lacks the right or the account may not do it; ERROR_KEY_DELETED when the key behind the
// handle is gone. Arguments that this client never uses - classes, volatile keys, security
// descriptors, times, the 32-bit view - are refused with ERROR_NOT_SUPPORTED.
#pragma once

#include <winnt.h>

// Predefined keys. HKEY_CURRENT_USER is the hive of the process's own account, also while a thread
// impersonates another. Below HKEY_USERS each hive is named by its account's number; only paths
// into a hive can be opened there. HKEY_CLASSES_ROOT is the machine's Software\Classes. Closing
// them is harmless.
#define SN_PREDEFINED_KEY(value) \
    (reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(value))))
#define HKEY_CLASSES_ROOT SN_PREDEFINED_KEY(0x80000000)
#define HKEY_CURRENT_USER SN_PREDEFINED_KEY(0x80000001)
#define HKEY_LOCAL_MACHINE SN_PREDEFINED_KEY(0x80000002)
#define HKEY_USERS SN_PREDEFINED_KEY(0x80000003)

struct SECURITY_ATTRIBUTES;

extern "C" {

// Opens an existing key, else ERROR_FILE_NOT_FOUND. The path may end with a backslash but not begin
// with one (ERROR_BAD_PATHNAME). What samDesired asks for is checked against the rights of the
// calling thread's account and is all that the handle can do; MAXIMUM_ALLOWED asks for what that
// account may have. An empty path gives another handle of the same key, or the same predefined key.
WINAPI_EXPORT LSTATUS WINAPI RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD ulOptions,
                                           REGSAM samDesired, PHKEY phkResult);

// Opens a key, making it and its parents when missing; *lpdwDisposition tells which. Creating asks
// for the account's right to write the hive, whatever the rights of hKey are, as on Windows.
WINAPI_EXPORT LSTATUS WINAPI RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD Reserved,
                                             LPWSTR lpClass, DWORD dwOptions, REGSAM samDesired,
                                             SECURITY_ATTRIBUTES* lpSecurityAttributes,
                                             PHKEY phkResult, LPDWORD lpdwDisposition);

// Opens the hive of the account that the calling thread acts as.
WINAPI_EXPORT LSTATUS WINAPI RegOpenCurrentUser(REGSAM samDesired, PHKEY phkResult);

WINAPI_EXPORT LSTATUS WINAPI RegCloseKey(HKEY hKey);

// Reads a value; a null or empty name is the key's default value. *lpcbData is the buffer's size on
// entry and the data's on return, also when the buffer is null or too small (ERROR_MORE_DATA).
// ERROR_FILE_NOT_FOUND when there is no such value.
WINAPI_EXPORT LSTATUS WINAPI RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD lpReserved,
                                              LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);

// Writes a value with the bytes as they are, whatever its type. Names have up to 16383 characters,
// data up to 64 MiB (else ERROR_NO_SYSTEM_RESOURCES). A process that is killed meanwhile leaves the
// old value or the new one.
WINAPI_EXPORT LSTATUS WINAPI RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD Reserved,
                                            DWORD dwType, const BYTE* lpData, DWORD cbData);

WINAPI_EXPORT LSTATUS WINAPI RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName);

// Deletes a key, which must have no subkeys (ERROR_ACCESS_DENIED). An empty path names hKey itself.
WINAPI_EXPORT LSTATUS WINAPI RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey);

// The value or subkey at an index, else ERROR_NO_MORE_ITEMS. Lengths of names are characters: the
// buffer's on entry, without the terminator on return; a name that does not fit gives
// ERROR_MORE_DATA and leaves the length as it was.
WINAPI_EXPORT LSTATUS WINAPI RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName,
                                           LPDWORD lpcchValueName, LPDWORD lpReserved,
                                           LPDWORD lpType, LPBYTE lpData, LPDWORD lpcbData);
WINAPI_EXPORT LSTATUS WINAPI RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName,
                                           LPDWORD lpcchName, LPDWORD lpReserved, LPWSTR lpClass,
                                           LPDWORD lpcchClass, LPFILETIME lpftLastWriteTime);

// Counts the values. Everything else that could be asked for is ERROR_NOT_SUPPORTED.
WINAPI_EXPORT LSTATUS WINAPI RegQueryInfoKeyW(HKEY hKey, LPWSTR lpClass, LPDWORD lpcchClass,
                                              LPDWORD lpReserved, LPDWORD lpcSubKeys,
                                              LPDWORD lpcbMaxSubKeyLen, LPDWORD lpcbMaxClassLen,
                                              LPDWORD lpcValues, LPDWORD lpcbMaxValueNameLen,
                                              LPDWORD lpcbMaxValueLen,
                                              LPDWORD lpcbSecurityDescriptor,
                                              LPFILETIME lpftLastWriteTime);
}
