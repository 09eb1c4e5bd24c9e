#include <stringapiset.h>

#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "last_error.h"

namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;
constexpr WCHAR kReplacement = 0xFFFD;

bool IsSupported(UINT codePage) {
    return codePage == CP_ACP || codePage == CP_UTF8;
}

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// Takes one character off the front of the text. An invalid sequence is taken up to and including
// the byte that makes it impossible, but never a byte that cannot continue a sequence at all.
char32_t TakeCharacter(std::string_view& text) {
    const auto takeByte = [&text] {
        const auto byte = static_cast<unsigned char>(text.front());
        text.remove_prefix(1);
        return static_cast<char32_t>(byte);
    };
    const char32_t lead = takeByte();
    if (lead < 0x80) return lead;
    if (lead < 0xC2 || lead > 0xF4) return kInvalid;
    const int tail = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    char32_t character = lead & (0x3Fu >> tail);
    for (int left = tail; left > 0; --left) {
        if (text.empty() || (static_cast<unsigned char>(text.front()) & 0xC0) != 0x80) {
            return kInvalid;
        }
        character = (character << 6) | (takeByte() & 0x3F);
        if (left != tail || tail == 1) continue;
        // The second byte decides whether the value is overlong, too large or a surrogate.
        const bool possible =
            tail == 2 ? character >= 0x20 && (character < 0xD800 >> 6 || character > 0xDFFF >> 6)
                      : character >= 0x10 && character <= 0x10FFFF >> 12;
        if (!possible) return kInvalid;
    }
    return character;
}

// Takes one character off the front of UTF-16 text; an unpaired surrogate is invalid.
char32_t TakeCharacter(std::u16string_view& text) {
    const char32_t unit = text.front();
    text.remove_prefix(1);
    if (IsHighSurrogate(unit) && !text.empty() && IsLowSurrogate(text.front())) {
        const char32_t low = text.front();
        text.remove_prefix(1);
        return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
    return IsHighSurrogate(unit) || IsLowSurrogate(unit) ? kInvalid : unit;
}

// Where a conversion puts its result: the caller's buffer, or only a count of what it would need.
template <typename Unit>
class Output {
  public:
    Output(Unit* buffer, int capacity)
        : buffer_(buffer), capacity_(static_cast<std::size_t>(capacity)) {}

    void Put(char32_t unit) {
        if (count_ < capacity_) buffer_[count_] = static_cast<Unit>(unit);
        ++count_;
    }
    // What the call returns.
    int Finish() const {
        if (capacity_ != 0 && count_ > capacity_) return platform::Fail(ERROR_INSUFFICIENT_BUFFER);
        if (count_ > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
            return platform::Fail(ERROR_INVALID_PARAMETER);
        }
        return static_cast<int>(count_);
    }

  private:
    Unit* buffer_;
    std::size_t capacity_;  // 0: the caller asks for the size
    std::size_t count_ = 0;
};

void Put(Output<WCHAR>& output, char32_t character) {
    if (character < 0x10000) return output.Put(character);
    output.Put(0xD800 + ((character - 0x10000) >> 10));
    output.Put(0xDC00 + ((character - 0x10000) & 0x3FF));
}

void Put(Output<CHAR>& output, char32_t character) {
    if (character < 0x80) return output.Put(character);
    const int tail = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    output.Put((tail == 1 ? 0xC0u : tail == 2 ? 0xE0u : 0xF0u) | (character >> (6 * tail)));
    for (int i = tail - 1; i >= 0; --i) output.Put(0x80u | ((character >> (6 * i)) & 0x3Fu));
}

template <typename From, typename To>
int Convert(std::basic_string_view<From> text, bool strict, To* buffer, int capacity) {
    Output<To> output(buffer, capacity);
    while (!text.empty()) {
        const char32_t character = TakeCharacter(text);
        if (character == kInvalid && strict) return platform::Fail(ERROR_NO_UNICODE_TRANSLATION);
        Put(output, character == kInvalid ? kReplacement : character);
    }
    return output.Finish();
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
        return platform::Fail(ERROR_INVALID_PARAMETER);
    }
    if ((dwFlags & ~DWORD{MB_ERR_INVALID_CHARS}) != 0) return platform::Fail(ERROR_INVALID_FLAGS);
    return Convert(TextOf(lpMultiByteStr, cbMultiByte), dwFlags != 0, lpWideCharStr, cchWideChar);
}

extern "C" int WINAPI WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr,
                                          int cchWideChar, LPSTR lpMultiByteStr, int cbMultiByte,
                                          LPCCH lpDefaultChar, LPBOOL lpUsedDefaultChar) {
    if (!IsSupported(CodePage) || lpWideCharStr == nullptr || cchWideChar == 0 ||
        cchWideChar < -1 || cbMultiByte < 0 || (cbMultiByte > 0 && lpMultiByteStr == nullptr) ||
        lpDefaultChar != nullptr || lpUsedDefaultChar != nullptr) {
        return platform::Fail(ERROR_INVALID_PARAMETER);
    }
    if ((dwFlags & ~DWORD{WC_ERR_INVALID_CHARS}) != 0) return platform::Fail(ERROR_INVALID_FLAGS);
    return Convert(TextOf(lpWideCharStr, cchWideChar), dwFlags != 0, lpMultiByteStr, cbMultiByte);
}
