// String resources.
#pragma once

#include <winnt.h>

extern "C" {
// A string of the program (its module handle, or null) in the language of the calling thread: the
// one set by SetThreadUILanguage, else by SetThreadLocale; without strings in it, the user's
// default UI language, then English (United States), then the first language there is. In place of
// a language, one with the same primary language will do: first the neutral one. Returns the
// characters copied, without the terminator; a small buffer cuts the string. With buffer size 0
// stores a pointer to the string itself at lpBuffer, and returns its length. 0 with
// ERROR_RESOURCE_NAME_NOT_FOUND when no language has the string.
WINAPI_EXPORT int WINAPI LoadStringW(HINSTANCE hInstance, UINT uID, LPWSTR lpBuffer,
                                     int cchBufferMax);
}
