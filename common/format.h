// Wide printf formatting, with Windows' meaning of the conversions.
#pragma once

#include <cstdarg>

#include "common/text.h"

// Formats in the manner of Windows' wide printf functions: %s and %ls and %ws take wide text, %S
// and %hs UTF-8 text, %c a wide character; d i u x X o p e f g a, flags, width, precision ("*"
// included) and the sizes hh h l ll z j t I64 I32 I are the C library's, with l meaning 32 bits as
// on Windows. A null text prints as "(null)". %n is not supported. The result is never cut.
WString FormatWide(const WCHAR* format, ...);
WString FormatWideV(const WCHAR* format, va_list arguments);

// The text as it can be shown in one line: a character that could break the line, or hide or
// reorder a part of it, becomes "\x" and its code in hexadecimal.
WString OneLine(WStringView text);
