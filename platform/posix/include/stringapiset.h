// Text in code pages (see winnls.h) and UTF-16. Lengths include a terminator only where it is part
// of the input; -1 says that the input ends at its terminator. A null buffer of size 0 asks for the
// size. An invalid sequence becomes U+FFFD, or with the ERR_INVALID_CHARS flag the failure
// ERROR_NO_UNICODE_TRANSLATION. 0 on failure.
#pragma once

#include <winnls.h>

extern "C" {
WINAPI_EXPORT int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCCH lpMultiByteStr,
                                             int cbMultiByte, LPWSTR lpWideCharStr,
                                             int cchWideChar);
// The last two arguments must be null for UTF-8.
WINAPI_EXPORT int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr,
                                             int cchWideChar, LPSTR lpMultiByteStr, int cbMultiByte,
                                             LPCCH lpDefaultChar, LPBOOL lpUsedDefaultChar);

// Orders two texts by their UTF-16 units, with bIgnoreCase in upper case as the registry and the
// file system compare names. A length of -1 counts up to the terminator. One of the CSTR_ values;
// 0, with ERROR_INVALID_PARAMETER, for a null text or another negative length.
WINAPI_EXPORT int WINAPI CompareStringOrdinal(LPCWCH lpString1, int cchCount1, LPCWCH lpString2,
                                              int cchCount2, BOOL bIgnoreCase);
}
