// String resources of the platform test program, each with its language's English name as text.
#pragma once

#include <windows.h>

inline constexpr UINT kStringInAll = 9;        // in Japanese, German, English, French, Norwegian
inline constexpr UINT kStringInJapanese = 10;  // "only Japanese"
