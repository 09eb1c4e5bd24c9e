#include "common/text.h"

#include <algorithm>
#include <limits>

namespace {

WString BytesToWide(UINT codePage, std::string_view text) {
    text = text.substr(0, text.find('\0'));
    if (text.empty()) return {};
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(codePage, 0, text.data(), bytes, nullptr, 0);
    if (units <= 0) return {};
    WString wide(static_cast<std::size_t>(units), WCHAR{0});
    if (MultiByteToWideChar(codePage, 0, text.data(), bytes, wide.data(), units) != units) {
        return {};
    }
    return wide;
}

std::string WideToBytes(UINT codePage, WStringView text) {
    text = text.substr(0, text.find(WCHAR{0}));
    if (text.empty()) return {};
    const int units = static_cast<int>(text.size());
    const int size =
        WideCharToMultiByte(codePage, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return {};
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (WideCharToMultiByte(codePage, 0, text.data(), units, bytes.data(), size, nullptr,
                            nullptr) != size) {
        return {};
    }
    return bytes;
}

bool IsBlank(WCHAR unit) {
    return unit == ' ' || (unit >= '\t' && unit <= '\r');
}

int CompareNames(WStringView a, WStringView b) {
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                static_cast<int>(b.size()), TRUE);
}

}  // namespace

WString Utf8ToWide(std::string_view text) {
    // Most texts are ASCII, which needs no call of the system's.
    const auto isAscii = [](char unit) { return unit > 0; };
    if (std::ranges::all_of(text, isAscii)) return {text.begin(), text.end()};
    return BytesToWide(CP_UTF8, text);
}

WString AnsiToWide(std::string_view text) {
    return BytesToWide(CP_ACP, text);
}

std::string WideToUtf8(WStringView text) {
    return WideToBytes(CP_UTF8, text);
}

std::string WideToAnsi(WStringView text) {
    return WideToBytes(CP_ACP, text);
}

std::string WideToAnsi(WStringView text, std::size_t capacity) {
    // Every unit takes a byte at least, so no more of them can fit.
    text = text.substr(0, capacity);
    std::string bytes = WideToAnsi(text);
    while (bytes.size() >= capacity) {
        const bool isPaired = text.size() > 1 && text.back() >= 0xDC00 && text.back() <= 0xDFFF;
        text.remove_suffix(isPaired ? 2 : 1);
        bytes = WideToAnsi(text);
    }
    return bytes;
}

std::vector<WString> SplitText(WStringView text, WStringView delimiters) {
    std::vector<WString> pieces;
    for (auto start = text.find_first_not_of(delimiters); start != WStringView::npos;) {
        const auto end = text.find_first_of(delimiters, start);
        pieces.emplace_back(text.substr(start, end - start));
        start = text.find_first_not_of(delimiters, end);
    }
    return pieces;
}

std::int32_t LeadingNumber(WStringView text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    const bool negative = !text.empty() && text.front() == '-';
    if (negative || (!text.empty() && text.front() == '+')) text.remove_prefix(1);
    constexpr std::int64_t kLimit = std::numeric_limits<std::int32_t>::max();
    std::int64_t number = 0;
    for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
        number = std::min(number * 10 + (text.front() - '0'), kLimit + 1);
    }
    return static_cast<std::int32_t>(negative ? -number : std::min(number, kLimit));
}

bool EqualIgnoringCase(WStringView a, WStringView b) {
    return a.size() == b.size() && (a.empty() || CompareNames(a, b) == CSTR_EQUAL);
}

bool LessIgnoringCase::operator()(WStringView a, WStringView b) const {
    if (a.empty() || b.empty()) return a.size() < b.size();
    return CompareNames(a, b) == CSTR_LESS_THAN;
}
