#include "client/plugins/value_types.h"

#include <configuration_format.h>
#include <utilsdll.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/hex.h"

namespace {

struct FreeText {
    void operator()(WCHAR* text) const { reg_free(text); }
};

// The text behind the stored form of a string, which the utility library opens; wiped when it goes.
class OpenedString {
  public:
    explicit OpenedString(const SecureText& stored) {
        WCHAR* text = nullptr;
        if (reg_open_stored_stringW(stored.c_str(), &text, &characters_, &isProtected_)) {
            text_.reset(text);
        }
    }
    bool IsOpen() const { return text_ != nullptr; }
    bool IsProtected() const { return isProtected_; }
    WStringView Text() const { return {text_.get(), characters_}; }

  private:
    std::unique_ptr<WCHAR, FreeText> text_;
    DWORD characters_ = 0;
    bool isProtected_ = false;
};

// The stored units of a string up to its first terminator.
SecureText StoredText(const RegistryValue& value) {
    std::vector<WCHAR, WipingAllocator<WCHAR>> units(value.data.size() / sizeof(WCHAR));
    if (!units.empty()) std::memcpy(units.data(), value.data.data(), units.size() * sizeof(WCHAR));
    const WStringView text(units.data(), units.size());
    return SecureText(text.substr(0, text.find(WCHAR{0})));
}

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

bool StringToXml(const RegistryValue& value, WStringView text, std::string& data) {
    const SecureText stored = StoredText(value);
    if (value.data.size() != (stored.size() + 1) * sizeof(WCHAR)) return false;
    if (value.type != REG_SZ) text = {stored.c_str(), stored.size()};
    if (!XmlCanCarry(text)) return false;
    data = WideToUtf8(text);
    return true;
}

template <typename Number>
bool NumberToXml(const RegistryValue& value, WStringView /*text*/, std::string& data) {
    Number number;
    if (value.data.size() != sizeof number) return false;
    std::memcpy(&number, value.data.data(), sizeof number);
    data = Decimal(number);
    return true;
}

// --- ... and back -------------------------------------------------------------------------------

bool StringFromXml(const std::string& data, ValueToWrite& value) {
    const WString text = Utf8ToWide(data);
    if (value.value.type == REG_SZ) {
        value.form = ValueToWrite::Form::kPlain;
        value.text = text;
    } else {
        const auto* bytes = reinterpret_cast<const BYTE*>(text.c_str());
        value.value.data.assign(bytes, bytes + (text.size() + 1) * sizeof(WCHAR));
    }
    return true;
}

template <typename Number>
bool NumberFromXml(const std::string& data, ValueToWrite& value) {
    errno = 0;
    char* end = nullptr;
    const unsigned long long parsed = std::strtoull(data.c_str(), &end, 10);
    const auto number = static_cast<Number>(parsed);
    if (data.empty() || *end != '\0' || errno != 0 || number != parsed) return false;
    const auto* bytes = reinterpret_cast<const BYTE*>(&number);
    value.value.data.assign(bytes, bytes + sizeof number);
    return true;
}

struct ValueType {
    DWORD type;
    bool (*toXml)(const RegistryValue& value, WStringView text, std::string& data);
    bool (*fromXml)(const std::string& data, ValueToWrite& value);
};
constexpr ValueType kValueTypes[] = {
    {REG_SZ, StringToXml, StringFromXml},
    {REG_EXPAND_SZ, StringToXml, StringFromXml},
    {REG_DWORD, NumberToXml<DWORD>, NumberFromXml<DWORD>},
    {REG_QWORD, NumberToXml<ULONGLONG>, NumberFromXml<ULONGLONG>},
};

const ValueType* FindType(DWORD type) {
    const auto* row = std::ranges::find(kValueTypes, type, &ValueType::type);
    return row == std::end(kValueTypes) ? nullptr : row;
}

// `text`: what stands behind the stored form of a REG_SZ value.
bool PlainForm(const RegistryValue& value, WStringView text, std::string& data) {
    const ValueType* row = FindType(value.type);
    return row != nullptr && row->toXml(value, text, data);
}

// --- The encrypted form -------------------------------------------------------------------------

bool EncryptedForm(WStringView text, const WCHAR* password, std::string& data) {
    constexpr std::size_t kCipherOverhead = 28;
    // An empty password would leave the text as good as plain.
    if (password == nullptr || *password == 0) return false;
    const std::size_t plainSize = text.size() * sizeof(WCHAR);
    std::vector<BYTE> encrypted(plainSize + kCipherOverhead);
    auto size = static_cast<DWORD>(encrypted.size());
    if (encrypt_buffer(text.data(), static_cast<DWORD>(plainSize), encrypted.data(), &size,
                       password) != 0) {
        return false;
    }
    data = std::string(kEncryptedValueMarker) + BytesToHex(encrypted.data(), size);
    return true;
}

bool OpenEncryptedForm(const std::string& data, const WCHAR* password, SecureText& text) {
    std::vector<BYTE> encrypted;
    if (password == nullptr || !data.starts_with(kEncryptedValueMarker) ||
        !HexToBytes(std::string_view(data).substr(kEncryptedValueMarker.size()), encrypted)) {
        return false;
    }
    SecureBytes plain(encrypted.size() + sizeof(WCHAR));
    auto size = static_cast<DWORD>(encrypted.size());
    if (decrypt_buffer(encrypted.data(), size, plain.data(), &size, password) != 0) return false;
    text = WStringView(reinterpret_cast<const WCHAR*>(plain.data()), size / sizeof(WCHAR));
    return true;
}

bool IsHex(const TiXmlElement& element, const std::string& attribute) {
    const std::string* encoding = element.Attribute(attribute + "-encoding");
    return encoding != nullptr && *encoding == "hex";
}

bool IsProtected(const TiXmlElement& element) {
    const std::string* enc = element.Attribute(std::string("enc"));
    return enc != nullptr && *enc == "1";
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

bool GetTextAttribute(const TiXmlElement& element, const std::string& attribute, WString& text) {
    const std::string* data = element.Attribute(attribute);
    if (data == nullptr) return false;
    if (!IsHex(element, attribute)) {
        text = Utf8ToWide(*data);
        return true;
    }
    std::vector<BYTE> bytes;
    if (!HexToBytes(*data, bytes)) return false;
    text.assign(bytes.size() / sizeof(WCHAR), WCHAR{0});
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(WCHAR));
    return true;
}

bool ValueToXml(const RegistryValue& value, const WCHAR* password, TiXmlElement& parent) {
    const OpenedString string(value.type == REG_SZ ? StoredText(value) : SecureText());
    std::string data;
    if (!string.IsOpen() ||
        (string.IsProtected() && !EncryptedForm(string.Text(), password, data))) {
        return false;
    }

    auto element = std::make_unique<TiXmlElement>("value");
    SetTextAttribute(*element, "name", value.name);
    element->SetAttribute("type", Decimal(value.type));
    if (string.IsProtected()) {
        element->SetAttribute("data", data);
        element->SetAttribute("enc", "1");
    } else if (PlainForm(value, string.Text(), data)) {
        element->SetAttribute("data", data);
    } else {
        element->SetAttribute("data", BytesToHex(value.data.data(), value.data.size()));
        element->SetAttribute("data-encoding", "hex");
    }
    parent.LinkEndChild(element.release());
    return true;
}

bool ValueFromXml(const TiXmlElement& element, const WCHAR* password, ValueToWrite& value) {
    const std::string* type = element.Attribute(std::string("type"));
    const std::string* data = element.Attribute(std::string("data"));
    if (!GetTextAttribute(element, "name", value.value.name) || data == nullptr ||
        type == nullptr || type->empty() ||
        type->find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    value.value.type = static_cast<DWORD>(std::strtoul(type->c_str(), nullptr, 10));

    if (IsProtected(element)) {
        value.form = ValueToWrite::Form::kProtected;
        return OpenEncryptedForm(*data, password, value.text);
    }
    if (IsHex(element, "data")) {
        std::vector<BYTE> bytes;
        if (!HexToBytes(*data, bytes)) return false;
        value.value.data.assign(bytes.begin(), bytes.end());
        return true;
    }
    const ValueType* row = FindType(value.value.type);
    return row != nullptr && row->fromXml(*data, value);
}

bool ReencryptValue(TiXmlElement& element, const WCHAR* oldPassword, const WCHAR* newPassword) {
    if (!IsProtected(element)) return true;
    const std::string* const form = element.Attribute(std::string("data"));
    SecureText text;
    std::string data;
    if (form == nullptr || !OpenEncryptedForm(*form, oldPassword, text) ||
        !EncryptedForm({text.c_str(), text.size()}, newPassword, data)) {
        return false;
    }
    element.SetAttribute("data", data);
    return true;
}

bool WriteValue(HKEY key, const ValueToWrite& value) {
    const auto* bytes = value.value.data.data();
    std::size_t size = value.value.data.size();
    std::unique_ptr<WCHAR, FreeText> stored;
    if (value.form != ValueToWrite::Form::kStored) {
        WCHAR* text = nullptr;
        const bool isProtected = value.form == ValueToWrite::Form::kProtected;
        if (!reg_make_stored_stringW(value.text.c_str(), isProtected, &text)) return false;
        stored.reset(text);
        bytes = reinterpret_cast<const BYTE*>(text);
        size = (WStringView(text).size() + 1) * sizeof(WCHAR);
    }
    return RegSetValueExW(key, value.value.name.c_str(), 0, value.value.type, bytes,
                          static_cast<DWORD>(size)) == ERROR_SUCCESS;
}
