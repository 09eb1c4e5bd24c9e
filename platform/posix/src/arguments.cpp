#include <winbase.h>

#include <algorithm>
#include <string>

#include "../entry/wide_arguments.h"
#include "text.h"

extern "C" std::size_t WideArgumentSize(const char* bytes) {
    return WidenArgument(bytes, nullptr);
}

extern "C" std::size_t WidenArgument(const char* bytes, WCHAR* units) {
    std::u16string text = platform::WideOf(bytes);
    const std::size_t size = text.size() + 1;
    if (units != nullptr) *std::copy(text.begin(), text.end(), units) = 0;
    // An argument may be a password.
    SecureZeroMemory(text.data(), text.size() * sizeof(WCHAR));
    return size;
}
