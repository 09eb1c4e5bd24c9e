// The string resources of a program, which on Windows the resource compiler puts into it. A program
// with strings defines platform_string_table in a source of its own (the program, not a library):
//
//   const platform_string kStrings[] = {{0x0409, 1, TEXT("Error")}, ...};
//   const platform_strings platform_string_table = {kStrings, std::size(kStrings)};
#pragma once

#include <winnt.h>

struct platform_string {
    LANGID language;
    UINT id;
    const WCHAR* text;
};

struct platform_strings {
    const platform_string* rows;
    std::size_t count;
};

// Defined by the program, or by nobody.
extern "C" WINAPI_EXPORT __attribute__((weak)) const platform_strings platform_string_table;
