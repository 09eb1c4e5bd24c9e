// Code pages and languages.
#pragma once

#include <winnt.h>

#define CP_ACP 0  // the system's 8-bit text: UTF-8 here
#define CP_UTF8 65001

// Results of comparisons.
#define CSTR_LESS_THAN 1
#define CSTR_EQUAL 2
#define CSTR_GREATER_THAN 3

#define MB_ERR_INVALID_CHARS 0x00000008
#define WC_ERR_INVALID_CHARS 0x00000080

extern "C" {
// The language of the environment's locale (LC_ALL, LC_MESSAGES, LANG: the first that is set);
// English (United States) for the locales C and POSIX and for a language that is not known here.
WINAPI_EXPORT LANGID WINAPI GetUserDefaultUILanguage();
// The language in which the calling thread loads resources; see LoadStringW. Setting 0 gives the
// user's default back. Returns the language that holds from now on.
WINAPI_EXPORT LANGID WINAPI SetThreadUILanguage(LANGID LangId);
WINAPI_EXPORT LANGID WINAPI GetThreadUILanguage();
// The calling thread's locale: the language of its resources while none was set by
// SetThreadUILanguage.
WINAPI_EXPORT BOOL WINAPI SetThreadLocale(LCID Locale);
}
