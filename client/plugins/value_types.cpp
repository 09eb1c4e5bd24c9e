#include "client/plugins/value_types.h"

#include <utilsdll.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "common/hex.h"

namespace {

struct FreeText {
    void operator()(WCHAR* text) const { reg_free(text); }
};

// A string value by the utility library, which opens protected ones; wiped when it goes.
class StringValue {
  public:
    StringValue(HKEY key, const WString& name) {
        WCHAR* text = nullptr;
        if (reg_getstringW(key, name.c_str(), &text, &characters_)) text_.reset(text);
    }
    bool IsRead() const { return text_ != nullptr; }
    WStringView Text() const { return {text_.get(), characters_}; }

  private:
    std::unique_ptr<WCHAR, FreeText> text_;
    DWORD characters_ = 0;
};

bool IsHighSurrogate(WCHAR unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(WCHAR unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

// The characters that XML 1.0 knows.
bool XmlCanCarry(WStringView text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const WCHAR unit = text[i];
        if (unit < 0x20 && unit != '\t' && unit != '\n' && unit != '\r') return false;
        if (unit >= 0xFFFE || IsLowSurrogate(unit)) return false;
        if (IsHighSurrogate(unit) && (++i == text.size() || !IsLowSurrogate(text[i]))) return false;
    }
    return true;
}

// Not std::to_string: its table of digits would keep the loader from ever unloading the library.
std::string Decimal(unsigned long long number) {
    char text[24];
    std::snprintf(text, sizeof text, "%llu", number);
    return text;
}

// --- The plain forms, by type: each gives false for stored bytes that have none -----------------

bool StringToXml(HKEY key, const RegistryValue& value, std::string& data) {
    std::vector<WCHAR> units(value.data.size() / sizeof(WCHAR));
    if (units.empty() || value.data.size() % sizeof(WCHAR) != 0) return false;
    std::memcpy(units.data(), value.data.data(), value.data.size());
    if (std::ranges::find(units, WCHAR{0}) != units.end() - 1) return false;
    if (value.type != REG_SZ) {
        const WStringView text(units.data(), units.size() - 1);
        if (!XmlCanCarry(text)) return false;
        data = WideToUtf8(text);
        return true;
    }
    const StringValue string(key, value.name);
    if (!string.IsRead() || !XmlCanCarry(string.Text())) return false;
    data = WideToUtf8(string.Text());
    return true;
}

template <typename Number>
bool NumberToXml(HKEY /*key*/, const RegistryValue& value, std::string& data) {
    Number number;
    if (value.data.size() != sizeof number) return false;
    std::memcpy(&number, value.data.data(), sizeof number);
    data = Decimal(number);
    return true;
}

struct ValueType {
    DWORD type;
    bool (*toXml)(HKEY key, const RegistryValue& value, std::string& data);
};
constexpr ValueType kValueTypes[] = {
    {REG_SZ, StringToXml},
    {REG_EXPAND_SZ, StringToXml},
    {REG_DWORD, NumberToXml<DWORD>},
    {REG_QWORD, NumberToXml<ULONGLONG>},
};

bool PlainForm(HKEY key, const RegistryValue& value, std::string& data) {
    const auto* row = std::ranges::find(kValueTypes, value.type, &ValueType::type);
    return row != std::end(kValueTypes) && row->toXml(key, value, data);
}

// --- The encrypted form -------------------------------------------------------------------------

bool EncryptedForm(HKEY key, const RegistryValue& value, const WCHAR* password, std::string& data) {
    constexpr std::size_t kCipherOverhead = 28;
    // An empty password would leave the text as good as plain.
    if (password == nullptr || *password == 0) return false;
    const StringValue plain(key, value.name);
    if (!plain.IsRead()) return false;
    const std::size_t plainSize = plain.Text().size() * sizeof(WCHAR);
    std::vector<BYTE> encrypted(plainSize + kCipherOverhead);
    auto size = static_cast<DWORD>(encrypted.size());
    if (encrypt_buffer(plain.Text().data(), static_cast<DWORD>(plainSize), encrypted.data(), &size,
                       password) != 0) {
        return false;
    }
    data = "EncX " + BytesToHex(encrypted.data(), size);
    return true;
}

}  // namespace

void SetTextAttribute(TiXmlElement& element, const std::string& attribute, WStringView text) {
    if (XmlCanCarry(text)) {
        element.SetAttribute(attribute, WideToUtf8(text));
        return;
    }
    element.SetAttribute(attribute, BytesToHex(reinterpret_cast<const BYTE*>(text.data()),
                                               text.size() * sizeof(WCHAR)));
    element.SetAttribute(attribute + "-encoding", "hex");
}

bool ValueToXml(HKEY key, const RegistryValue& value, const WCHAR* password, TiXmlElement& parent) {
    const bool isProtected =
        value.type == REG_SZ && reg_is_encrypted_valueW(key, value.name.c_str());
    std::string data;
    if (isProtected && !EncryptedForm(key, value, password, data)) return false;

    TiXmlElement element("value");
    SetTextAttribute(element, "name", value.name);
    element.SetAttribute("type", Decimal(value.type));
    if (isProtected) {
        element.SetAttribute("data", data);
        element.SetAttribute("enc", "1");
    } else if (PlainForm(key, value, data)) {
        element.SetAttribute("data", data);
    } else {
        element.SetAttribute("data", BytesToHex(value.data.data(), value.data.size()));
        element.SetAttribute("data-encoding", "hex");
    }
    parent.InsertEndChild(element);
    return true;
}
