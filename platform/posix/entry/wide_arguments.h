// How the entry of a program turns its arguments into wide text, as Windows' own start-up does.
#pragma once

#include <minwindef.h>

extern "C" {
// Units that the wide form of `bytes` has, terminator included.
WINAPI_EXPORT std::size_t WideArgumentSize(const char* bytes);
// Writes that form, which holds every byte without loss, and returns its size.
WINAPI_EXPORT std::size_t WidenArgument(const char* bytes, WCHAR* units);
}
