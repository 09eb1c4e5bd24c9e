// Whole trees of registry keys.
#pragma once

#include <winreg.h>

extern "C" {

// Deletes a key with everything below it, at once: no other process sees a part of it. The root of
// a hive is refused (ERROR_ACCESS_DENIED).
WINAPI_EXPORT DWORD WINAPI SHDeleteKeyW(HKEY hkey, LPCWSTR pszSubKey);

// Copies the values and subkeys of a key into the destination, over what it holds of the same
// names. A null path names hkeySrc itself. Nothing is copied when the source cannot be read whole.
WINAPI_EXPORT DWORD WINAPI SHCopyKeyW(HKEY hkeySrc, LPCWSTR wszSrcSubKey, HKEY hkeyDest,
                                      DWORD fReserved);
}
