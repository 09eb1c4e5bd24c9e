#include <stringapiset.h>

#include <climits>
#include <cstring>
#include <string>
#include <string_view>

#include "last_error.h"
#include "text.h"

using namespace platform;

namespace {

bool IsSupported(UINT codePage) {
    return codePage == CP_ACP || codePage == CP_UTF8;
}

template <typename From, typename To>
int Convert(std::basic_string_view<From> text, bool strict, To* buffer, int capacity) {
    // The text may be a secret: this form of it is made in one place and wiped.
    std::basic_string<To> converted;
    converted.reserve(text.size() * 3);
    bool isValid = true;
    while (!text.empty()) {
        const char32_t character = TakeCharacter(text);
        isValid = isValid && character != kInvalidText;
        Append(converted, character == kInvalidText ? kReplacement : character);
    }
    const std::size_t size = converted.size();
    const bool fits = size <= static_cast<std::size_t>(capacity);
    if (fits) converted.copy(buffer, size);
    explicit_bzero(converted.data(), size * sizeof(To));
    if (strict && !isValid) return Fail(ERROR_NO_UNICODE_TRANSLATION);
    if (!fits && capacity != 0) return Fail(ERROR_INSUFFICIENT_BUFFER);
    return size <= INT_MAX ? static_cast<int>(size) : Fail(ERROR_INVALID_PARAMETER);
}

// The text that a caller means by a pointer and a length, where -1 counts up to the terminator.
template <typename Unit>
std::basic_string_view<Unit> TextOf(const Unit* text, int length) {
    if (length != -1) return {text, static_cast<std::size_t>(length)};
    return {text, std::char_traits<Unit>::length(text) + 1};
}

}  // namespace

extern "C" int WINAPI MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCCH lpMultiByteStr,
                                          int cbMultiByte, LPWSTR lpWideCharStr, int cchWideChar) {
    if (!IsSupported(CodePage) || lpMultiByteStr == nullptr || cbMultiByte == 0 ||
        cbMultiByte < -1 || cchWideChar < 0 || (cchWideChar > 0 && lpWideCharStr == nullptr)) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if ((dwFlags & ~DWORD{MB_ERR_INVALID_CHARS}) != 0) return Fail(ERROR_INVALID_FLAGS);
    return Convert(TextOf(lpMultiByteStr, cbMultiByte), dwFlags != 0, lpWideCharStr, cchWideChar);
}

extern "C" int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr,
                                          int cchWideChar, LPSTR lpMultiByteStr, int cbMultiByte,
                                          LPCCH lpDefaultChar, LPBOOL lpUsedDefaultChar) {
    if (!IsSupported(CodePage) || lpWideCharStr == nullptr || cchWideChar == 0 ||
        cchWideChar < -1 || cbMultiByte < 0 || (cbMultiByte > 0 && lpMultiByteStr == nullptr) ||
        lpDefaultChar != nullptr || lpUsedDefaultChar != nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if ((dwFlags & ~DWORD{WC_ERR_INVALID_CHARS}) != 0) return Fail(ERROR_INVALID_FLAGS);
    return Convert(TextOf(lpWideCharStr, cchWideChar), dwFlags != 0, lpMultiByteStr, cbMultiByte);
}
