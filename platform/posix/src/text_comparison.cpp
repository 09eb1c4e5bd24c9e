#include <stringapiset.h>

#include <algorithm>
#include <string_view>

#include "last_error.h"
#include "text.h"

using namespace platform;

namespace {

std::u16string_view TextOf(LPCWCH text, int length) {
    return length == -1 ? std::u16string_view(text)
                        : std::u16string_view(text, static_cast<std::size_t>(length));
}

// Negative, 0 or positive.
int CompareIgnoringCase(std::u16string_view one, std::u16string_view other) {
    const auto [first, second] =
        std::mismatch(one.begin(), one.end(), other.begin(), other.end(),
                      [](char16_t a, char16_t b) { return UpperCase(a) == UpperCase(b); });
    if (first == one.end() || second == other.end()) {
        return int{first != one.end()} - int{second != other.end()};
    }
    return UpperCase(*first) < UpperCase(*second) ? -1 : 1;
}

}  // namespace

extern "C" int WINAPI CompareStringOrdinal(LPCWCH lpString1, int cchCount1, LPCWCH lpString2,
                                           int cchCount2, BOOL bIgnoreCase) {
    if (lpString1 == nullptr || lpString2 == nullptr || cchCount1 < -1 || cchCount2 < -1) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const std::u16string_view one = TextOf(lpString1, cchCount1);
    const std::u16string_view other = TextOf(lpString2, cchCount2);
    const int order = bIgnoreCase ? CompareIgnoringCase(one, other) : one.compare(other);
    return order < 0 ? CSTR_LESS_THAN : order > 0 ? CSTR_GREATER_THAN : CSTR_EQUAL;
}
