#include "value_text.h"

#include <algorithm>
#include <cstdint>

#include "common/format.h"
#include "common/hex.h"
#include "key_name.h"

namespace {

struct Type {
    DWORD type;
    WStringView name;
};

const Type kTypes[] = {
    {REG_NONE, TEXT("REG_NONE")},
    {REG_SZ, TEXT("REG_SZ")},
    {REG_EXPAND_SZ, TEXT("REG_EXPAND_SZ")},
    {REG_BINARY, TEXT("REG_BINARY")},
    {REG_DWORD, TEXT("REG_DWORD")},
    {REG_DWORD, TEXT("REG_DWORD_LITTLE_ENDIAN")},
    {REG_DWORD_BIG_ENDIAN, TEXT("REG_DWORD_BIG_ENDIAN")},
    {REG_LINK, TEXT("REG_LINK")},
    {REG_MULTI_SZ, TEXT("REG_MULTI_SZ")},
    {REG_RESOURCE_LIST, TEXT("REG_RESOURCE_LIST")},
    {REG_FULL_RESOURCE_DESCRIPTOR, TEXT("REG_FULL_RESOURCE_DESCRIPTOR")},
    {REG_RESOURCE_REQUIREMENTS_LIST, TEXT("REG_RESOURCE_REQUIREMENTS_LIST")},
    {REG_QWORD, TEXT("REG_QWORD")},
};

// Bytes of a number of this type; 0 for types that are no numbers.
std::size_t NumberSize(DWORD type) {
    if (type == REG_DWORD || type == REG_DWORD_BIG_ENDIAN) return 4;
    return type == REG_QWORD ? 8 : 0;
}

WString UnitsOf(const std::vector<BYTE>& data) {
    WString text;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        text += static_cast<WCHAR>(data[i] | data[i + 1] << 8);
    }
    return text;
}

void AppendText(std::vector<BYTE>& data, WStringView text) {
    for (const WCHAR unit : text) {
        data.push_back(static_cast<BYTE>(unit & 0xFF));
        data.push_back(static_cast<BYTE>(unit >> 8));
    }
    data.insert(data.end(), 2, 0);
}

// The texts of a list, up to the empty one that ends it.
WString ListText(WStringView units) {
    WString text;
    while (!units.empty() && units.front() != 0) {
        const std::size_t end = std::min(units.find(WCHAR{0}), units.size());
        if (!text.empty()) text += TEXT("\\0");
        text += units.substr(0, end);
        units.remove_prefix(std::min(end + 1, units.size()));
    }
    return text;
}

std::vector<BYTE> ListData(WStringView text, WStringView separator) {
    std::vector<BYTE> data;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (end > 0) AppendText(data, text.substr(0, end));
        text.remove_prefix(std::min(end + separator.size(), text.size()));
    }
    data.insert(data.end(), 2, 0);
    return data;
}

// Decimal, or hexadecimal after 0x; nothing for other text and for numbers of more bytes.
std::optional<std::uint64_t> NumberOf(WStringView text, std::size_t bytes) {
    const unsigned base = EqualWithoutCase(text.substr(0, 2), TEXT("0x")) ? 16 : 10;
    if (base == 16) text.remove_prefix(2);
    if (text.empty()) return std::nullopt;
    const std::uint64_t greatest = bytes == 8 ? UINT64_MAX : UINT32_MAX;
    std::uint64_t number = 0;
    for (const WCHAR unit : text) {
        unsigned digit = base;
        if (unit >= '0' && unit <= '9') digit = static_cast<unsigned>(unit - '0');
        if (unit >= 'a' && unit <= 'f') digit = static_cast<unsigned>(unit - 'a' + 10);
        if (unit >= 'A' && unit <= 'F') digit = static_cast<unsigned>(unit - 'A' + 10);
        if (digit >= base || number > (greatest - digit) / base) return std::nullopt;
        number = number * base + digit;
    }
    return number;
}

std::optional<std::vector<BYTE>> NumberData(DWORD type, WStringView text) {
    const std::size_t size = NumberSize(type);
    const auto number = NumberOf(text, size);
    if (!number) return std::nullopt;
    std::vector<BYTE> data;
    for (std::size_t i = 0; i < size; ++i) data.push_back(static_cast<BYTE>(*number >> (8 * i)));
    if (type == REG_DWORD_BIG_ENDIAN) std::reverse(data.begin(), data.end());
    return data;
}

std::optional<std::vector<BYTE>> DigitData(WStringView text) {
    const auto isDigit = [](WCHAR unit) {
        return (unit >= '0' && unit <= '9') || (unit >= 'a' && unit <= 'f') ||
               (unit >= 'A' && unit <= 'F');
    };
    if (!std::all_of(text.begin(), text.end(), isDigit)) return std::nullopt;
    std::string digits = WideToUtf8(text);
    if (digits.size() % 2 != 0) digits.insert(digits.begin(), '0');
    std::vector<BYTE> data;
    if (!HexToBytes(digits, data)) return std::nullopt;
    return data;
}

}  // namespace

WString TypeName(DWORD type) {
    for (const Type& known : kTypes) {
        if (known.type == type) return WString(known.name);
    }
    return FormatWide(TEXT("0x%x"), type);
}

std::optional<DWORD> TypeNamed(WStringView name) {
    for (const Type& known : kTypes) {
        if (EqualWithoutCase(known.name, name)) return known.type;
    }
    return std::nullopt;
}

WString DataText(DWORD type, const std::vector<BYTE>& data) {
    if (type == REG_SZ || type == REG_EXPAND_SZ) {
        const WString units = UnitsOf(data);
        return units.substr(0, units.find(WCHAR{0}));
    }
    if (type == REG_MULTI_SZ) return ListText(UnitsOf(data));
    if (NumberSize(type) != 0 && NumberSize(type) == data.size()) {
        std::uint64_t number = 0;
        for (std::size_t i = 0; i < data.size(); ++i) {
            const bool bigEnd = type == REG_DWORD_BIG_ENDIAN;
            number = number << 8 | data[bigEnd ? i : data.size() - 1 - i];
        }
        return FormatWide(TEXT("0x%I64x"), number);
    }
    return Utf8ToWide(BytesToHex(data.data(), data.size()));
}

std::optional<std::vector<BYTE>> DataOfText(DWORD type, WStringView text, WStringView separator) {
    switch (type) {
        case REG_SZ:
        case REG_EXPAND_SZ: {
            std::vector<BYTE> data;
            AppendText(data, text);
            return data;
        }
        case REG_MULTI_SZ:
            return ListData(text, separator);
        case REG_DWORD:
        case REG_DWORD_BIG_ENDIAN:
        case REG_QWORD:
            return NumberData(type, text);
        default:
            return DigitData(text);
    }
}
