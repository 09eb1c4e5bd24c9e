#include "text.h"

#include <locale.h>
#include <clocale>
#include <cwctype>

namespace platform {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kEscapeBase = 0xDC00;  // 0xDC80 to 0xDCFF: bytes that are not UTF-8

struct Decoded {
    char32_t codePoint;
    std::size_t length;  // 0 when the bytes at the position are not a valid sequence
};

Decoded DecodeUtf8(std::string_view bytes) {
    const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byteAt(0);
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || bytes.size() < length) return {0, 0};
    char32_t codePoint = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xC0) != 0x80) return {0, 0};
        codePoint = (codePoint << 6) | (byteAt(i) & 0x3Fu);
    }
    const bool overlong = codePoint < (length == 4 ? 0x10000u : length == 3 ? 0x800u : 0x80u);
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (overlong || surrogate || codePoint > 0x10FFFF) return {0, 0};
    return {codePoint, length};
}

void AppendUtf8(std::string& out, char32_t codePoint) {
    if (codePoint < 0x80) {
        out += static_cast<char>(codePoint);
        return;
    }
    const int tail = codePoint < 0x800 ? 1 : codePoint < 0x10000 ? 2 : 3;
    const unsigned lead = tail == 1 ? 0xC0u : tail == 2 ? 0xE0u : 0xF0u;
    out += static_cast<char>(lead | (codePoint >> (6 * tail)));
    for (int i = tail - 1; i >= 0; --i) {
        out += static_cast<char>(0x80u | ((codePoint >> (6 * i)) & 0x3Fu));
    }
}

}  // namespace

std::u16string WideOf(std::string_view bytes) {
    std::u16string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Decoded next = DecodeUtf8(bytes);
        if (next.length == 0) {
            text += static_cast<char16_t>(kEscapeBase + static_cast<unsigned char>(bytes[0]));
        } else if (next.codePoint >= 0x10000) {
            text += static_cast<char16_t>(0xD800 + ((next.codePoint - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + ((next.codePoint - 0x10000) & 0x3FF));
        } else {
            text += static_cast<char16_t>(next.codePoint);
        }
        bytes.remove_prefix(next.length == 0 ? 1 : next.length);
    }
    return text;
}

std::string BytesOf(std::u16string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i];
        const bool paired = unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() &&
                            text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
        if (paired) {
            const char32_t high = static_cast<char32_t>(unit - 0xD800) << 10;
            AppendUtf8(bytes, 0x10000 + high + (text[++i] - 0xDC00u));
        } else if (unit >= kEscapeBase + 0x80 && unit <= kEscapeBase + 0xFF) {
            bytes += static_cast<char>(unit - kEscapeBase);
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            AppendUtf8(bytes, kReplacement);
        } else {
            AppendUtf8(bytes, unit);
        }
    }
    return bytes;
}

std::string NativePath(const WCHAR* path) {
    std::string native = BytesOf(path);
    for (char& c : native) {
        if (c == '\\') c = '/';
    }
    return native;
}

char16_t UpperCase(char16_t unit) {
    constexpr char16_t kFirstBeyondAscii = 0x80;
    if (unit < kFirstBeyondAscii) {
        return unit >= u'a' && unit <= u'z' ? static_cast<char16_t>(unit - (u'a' - u'A')) : unit;
    }
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const auto mapped = towupper_l(unit, utf8);
    return mapped <= 0xFFFF ? static_cast<char16_t>(mapped) : unit;
}

std::u16string UpperCase(std::u16string_view text) {
    std::u16string upper(text);
    for (char16_t& unit : upper) unit = UpperCase(unit);
    return upper;
}

}  // namespace platform
