#include "text.h"

#include <locale.h>
#include <clocale>
#include <cwctype>

namespace platform {
namespace {

constexpr char32_t kEscapeBase = 0xDC00;  // 0xDC80 to 0xDCFF: bytes that are not UTF-8

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace

char32_t TakeCharacter(std::string_view& text) {
    const auto takeByte = [&text] {
        const auto byte = static_cast<unsigned char>(text.front());
        text.remove_prefix(1);
        return static_cast<char32_t>(byte);
    };
    const char32_t lead = takeByte();
    if (lead < 0x80) return lead;
    if (lead < 0xC2 || lead > 0xF4) return kInvalidText;
    const int tail = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    char32_t character = lead & (0x3Fu >> tail);
    for (int left = tail; left > 0; --left) {
        if (text.empty() || (static_cast<unsigned char>(text.front()) & 0xC0) != 0x80) {
            return kInvalidText;
        }
        character = (character << 6) | (takeByte() & 0x3F);
        if (left != tail || tail == 1) continue;
        // The second byte decides whether the value is overlong, too large or a surrogate.
        const bool possible =
            tail == 2 ? character >= 0x20 && (character < 0xD800 >> 6 || character > 0xDFFF >> 6)
                      : character >= 0x10 && character <= 0x10FFFF >> 12;
        if (!possible) return kInvalidText;
    }
    return character;
}

char32_t TakeCharacter(std::u16string_view& text) {
    const char32_t unit = text.front();
    text.remove_prefix(1);
    if (IsHighSurrogate(unit) && !text.empty() && IsLowSurrogate(text.front())) {
        const char32_t low = text.front();
        text.remove_prefix(1);
        return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
    return IsHighSurrogate(unit) || IsLowSurrogate(unit) ? kInvalidText : unit;
}

void Append(std::u16string& text, char32_t character) {
    if (character >= 0x10000) {
        text += static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
        character = 0xDC00 + ((character - 0x10000) & 0x3FF);
    }
    text += static_cast<char16_t>(character);
}

void Append(std::string& out, char32_t codePoint) {
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

std::u16string WideOf(std::string_view bytes) {
    std::u16string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::string_view before = bytes;
        const char32_t character = TakeCharacter(bytes);
        if (character != kInvalidText) {
            Append(text, character);
            continue;
        }
        for (const char byte : before.substr(0, before.size() - bytes.size())) {
            text += static_cast<char16_t>(kEscapeBase + static_cast<unsigned char>(byte));
        }
    }
    return text;
}

std::string BytesOf(std::u16string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    while (!text.empty()) {
        const char16_t unit = text.front();
        const char32_t character = TakeCharacter(text);
        if (character == kInvalidText && unit >= kEscapeBase + 0x80 && unit <= kEscapeBase + 0xFF) {
            bytes += static_cast<char>(unit - kEscapeBase);
        } else {
            Append(bytes, character == kInvalidText ? kReplacement : character);
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
