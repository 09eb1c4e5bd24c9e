// Text in its three forms - UTF-16 inside the program, UTF-8 in files, the ANSI code page at the
// 8-bit calls - and the small readings that several subsystems share.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// UTF-16 text. WCHAR is the unit: wchar_t on Windows, char16_t elsewhere.
using WString = std::basic_string<WCHAR>;
using WStringView = std::basic_string_view<WCHAR>;

// Converts UTF-8 up to its first zero byte. Invalid sequences follow the system's conversion; a
// text that cannot be converted gives an empty result.
WString Utf8ToWide(std::string_view text);

// The same for the system's ANSI code page.
WString AnsiToWide(std::string_view text);

// Converts UTF-16 up to its first zero unit to UTF-8; failure gives an empty result.
std::string WideToUtf8(WStringView text);

// Converts UTF-16 to the system's ANSI code page. Characters that the code page lacks become its
// default character; failure or an empty text gives an empty result.
std::string WideToAnsi(WStringView text);

// The same, cut so that it fits a buffer of `capacity` bytes with its terminator; no character is
// cut in two.
std::string WideToAnsi(WStringView text, std::size_t capacity);

// The maximal runs of characters that are not in `delimiters`, in their order of appearance. Never
// holds an empty piece.
std::vector<WString> SplitText(WStringView text, WStringView delimiters);

// The decimal number at the start of `text`: optional white space and sign, then digits up to the
// first non-digit; 0 when there are none. A number out of range gives the nearest end of the range.
std::int32_t LeadingNumber(WStringView text);

// True when the texts are equal as the registry and the file system compare names: without case.
bool EqualIgnoringCase(WStringView a, WStringView b);

// The order that goes with it, for sets of names.
struct LessIgnoringCase {
    bool operator()(WStringView a, WStringView b) const;
};
