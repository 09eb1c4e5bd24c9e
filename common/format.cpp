#include "common/format.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

enum class Size { kDefault, kChar, kShort, kWide, kLongLong, kPointer };

// One conversion of a format, taken apart.
struct Conversion {
    std::string flags;   // of "-+ #0"
    int width = -1;      // -1: none
    int precision = -1;  // -1: none
    Size size = Size::kDefault;
    char type = 0;
};

// What may stand before the type. The first match counts, so a longer text stands before its start.
struct SizePrefix {
    const char* text;
    Size size;
};
constexpr SizePrefix kSizePrefixes[] = {
    {"I64", Size::kLongLong}, {"I32", Size::kDefault}, {"I", Size::kPointer},
    {"ll", Size::kLongLong},  {"l", Size::kWide},      {"hh", Size::kChar},
    {"h", Size::kShort},      {"j", Size::kLongLong},  {"z", Size::kPointer},
    {"t", Size::kPointer},    {"w", Size::kWide},
};

bool IsDigit(WCHAR unit) {
    return unit >= '0' && unit <= '9';
}

// Control characters, the Unicode line ends, and the marks that reorder what a terminal shows.
bool IsUnsafe(WCHAR unit) {
    return unit < 0x20 || (unit >= 0x7F && unit < 0xA0) || (unit >= 0x2028 && unit <= 0x202E) ||
           (unit >= 0x2066 && unit <= 0x2069);
}

bool SkipPrefix(const WCHAR*& at, const char* prefix) {
    const WCHAR* end = at;
    for (; *prefix != '\0'; ++prefix, ++end) {
        if (*end != static_cast<WCHAR>(*prefix)) return false;
    }
    at = end;
    return true;
}

// Owns a copy of the caller's argument list while the conversions take from it.
class Arguments {
  public:
    explicit Arguments(va_list list) { va_copy(list_, list); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    ~Arguments() { va_end(list_); }

    template <typename Type>
    Type Next() {
        // The constructor has started the list, which the analyzer does not see through the table.
        return va_arg(list_, Type);  // NOLINT(clang-analyzer-valist.Uninitialized)
    }

  private:
    va_list list_;
};

int ReadNumber(const WCHAR*& at, Arguments& arguments) {
    if (*at == '*') {
        ++at;
        return arguments.Next<int>();
    }
    int number = 0;
    for (; IsDigit(*at); ++at) {
        if (number < 100'000) number = number * 10 + static_cast<int>(*at - '0');
    }
    return number;
}

Conversion ReadConversion(const WCHAR*& at, Arguments& arguments) {
    Conversion c;
    for (; *at == '-' || *at == '+' || *at == ' ' || *at == '#' || *at == '0'; ++at) {
        c.flags += static_cast<char>(*at);
    }
    if (*at == '*' || IsDigit(*at)) {
        c.width = ReadNumber(at, arguments);
        if (c.width < 0) {
            c.flags += '-';
            c.width = -c.width;
        }
    }
    if (*at == '.') {
        ++at;
        c.precision = ReadNumber(at, arguments);
    }
    for (const SizePrefix& prefix : kSizePrefixes) {
        if (!SkipPrefix(at, prefix.text)) continue;
        c.size = prefix.size;
        break;
    }
    if (*at != 0) c.type = *at < 0x80 ? static_cast<char>(*at) : '?';
    return c;
}

void AppendPadded(WString& out, WStringView text, const Conversion& c) {
    if (c.precision >= 0) text = text.substr(0, static_cast<std::size_t>(c.precision));
    const std::size_t width = c.width < 0 ? 0 : static_cast<std::size_t>(c.width);
    const std::size_t padding = width > text.size() ? width - text.size() : 0;
    const bool left = c.flags.find('-') != std::string::npos;
    if (!left) out.append(padding, WCHAR{' '});
    out += text;
    if (left) out.append(padding, WCHAR{' '});
}

// A number through the C library: "%" flags width precision `size` type.
template <typename Number>
void AppendNumber(WString& out, const Conversion& c, const char* size, Number number) {
    std::string format = "%" + c.flags;
    if (c.width >= 0) format += std::to_string(c.width);
    if (c.precision >= 0) format += "." + std::to_string(c.precision);
    format += size;
    format += c.type;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(nullptr, 0, format.c_str(), number);
    std::string digits(static_cast<std::size_t>(length < 0 ? 0 : length) + 1, '\0');
    std::snprintf(digits.data(), digits.size(), format.c_str(), number);
#pragma GCC diagnostic pop
    digits.pop_back();
    out.append(digits.begin(), digits.end());
}

void AppendInteger(WString& out, const Conversion& c, Arguments& arguments) {
    switch (c.size) {
        case Size::kChar:
            return AppendNumber(out, c, "hh", arguments.Next<int>());
        case Size::kShort:
            return AppendNumber(out, c, "h", arguments.Next<int>());
        case Size::kLongLong:
            return AppendNumber(out, c, "ll", arguments.Next<long long>());
        case Size::kPointer:
            return AppendNumber(out, c, "z", arguments.Next<std::size_t>());
        default:
            return AppendNumber(out, c, "", arguments.Next<int>());
    }
}

void AppendFloatingPoint(WString& out, const Conversion& c, Arguments& arguments) {
    AppendNumber(out, c, "", arguments.Next<double>());
}

void AppendPointer(WString& out, const Conversion& c, Arguments& arguments) {
    AppendNumber(out, c, "", arguments.Next<void*>());
}

void AppendWideText(WString& out, const Conversion& c, Arguments& arguments) {
    const auto* text = arguments.Next<const WCHAR*>();
    AppendPadded(out, text == nullptr ? TEXT("(null)") : text, c);
}

void AppendNarrowText(WString& out, const Conversion& c, Arguments& arguments) {
    const auto* text = arguments.Next<const char*>();
    AppendPadded(out, Utf8ToWide(text == nullptr ? "(null)" : text), c);
}

void AppendText(WString& out, const Conversion& c, Arguments& arguments) {
    const bool isNarrow = c.type == 's' ? c.size == Size::kShort : c.size != Size::kWide;
    return (isNarrow ? AppendNarrowText : AppendWideText)(out, c, arguments);
}

void AppendCharacter(WString& out, const Conversion& c, Arguments& arguments) {
    const auto unit = static_cast<WCHAR>(arguments.Next<int>());
    AppendPadded(out, WStringView(&unit, 1), c);
}

void AppendPercentSign(WString& out, const Conversion& /*c*/, Arguments& /*arguments*/) {
    out += WCHAR{'%'};
}

// The conversions by their types.
struct TypeRow {
    std::string_view types;
    void (*append)(WString& out, const Conversion& c, Arguments& arguments);
};
constexpr TypeRow kTypes[] = {
    {"diuoxX", AppendInteger}, {"eEfFgGaA", AppendFloatingPoint}, {"p", AppendPointer},
    {"sS", AppendText},        {"cC", AppendCharacter},           {"%", AppendPercentSign},
};

const TypeRow* FindType(char type) {
    const auto* const row = std::ranges::find_if(kTypes, [&](const TypeRow& candidate) {
        return candidate.types.find(type) != std::string_view::npos;
    });
    return row == std::end(kTypes) ? nullptr : row;
}

}  // namespace

WString FormatWideV(const WCHAR* format, va_list list) {
    Arguments arguments(list);
    WString out;
    for (const WCHAR* at = format; *at != 0; ++at) {
        if (*at != '%') {
            out += *at;
            continue;
        }
        ++at;
        const Conversion c = ReadConversion(at, arguments);
        if (c.type == 0) return out;  // the format ends inside a conversion
        if (const TypeRow* const row = FindType(c.type)) {
            row->append(out, c, arguments);
        } else {
            out += WCHAR{'%'};  // not a conversion: shown as it stands
            out += *at;
        }
    }
    return out;
}

WString FormatWide(const WCHAR* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    WString text = FormatWideV(format, arguments);
    va_end(arguments);
    return text;
}

WString OneLine(WStringView text) {
    WString line;
    line.reserve(text.size());
    for (const WCHAR unit : text) {
        if (IsUnsafe(unit)) {
            line += FormatWide(TEXT("\\x%02X"), static_cast<unsigned>(unit));
        } else {
            line += unit;
        }
    }
    return line;
}
