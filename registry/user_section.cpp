#include "registry/user_section.h"

#include <product_registry.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "common/hex.h"
#include "protect/encrypted_forms.h"

namespace {

// strtoul for base 10 with a 32-bit result: a leading "-" wraps, what is too large is the largest.
DWORD ParseDecimal(const std::string& text) {
    constexpr unsigned long long kMax = 0xFFFFFFFFull;
    const bool isNegative = text.find('-') < text.find_first_of("0123456789");
    errno = 0;
    const unsigned long long parsed = std::strtoull(text.c_str(), nullptr, 10);
    const unsigned long long magnitude = isNegative ? 0 - parsed : parsed;
    if (errno == ERANGE || magnitude > kMax) return static_cast<DWORD>(kMax);
    return static_cast<DWORD>(isNegative ? 0 - magnitude : magnitude);
}

bool IsEncrypted(const TiXmlElement& element) {
    const std::string* const enc = element.Attribute(std::string("enc"));
    return enc != nullptr && *enc != "0";
}

// The strings of a REG_MULTI_SZ from its hexadecimal: terminated whatever the text was, without
// half a UTF-16 unit at its end.
std::vector<BYTE> ListFromHex(const std::string& text) {
    std::vector<BYTE> bytes;
    if (!HexToBytes(text, bytes)) return {};
    bytes.resize(bytes.size() / sizeof(WCHAR) * sizeof(WCHAR));
    bytes.resize(bytes.size() + 2 * sizeof(WCHAR));
    return bytes;
}

UserValueReading ReadEncrypted(const std::string& data, const SecureText& password,
                               UserValue& value) {
    // A backup writes no more than this when it could not encrypt the value: there is nothing to
    // restore, and no sign of a wrong password.
    if (data.size() < kEncryptedValueMarker.size()) return UserValueReading::kNothing;
    auto& secret = value.data.emplace<UserValue::Protected>();
    return DecryptValue(data, password.c_str(), secret.text) ? UserValueReading::kValue
                                                             : UserValueReading::kWrongPassword;
}

}  // namespace

UserValueReading ReadUserValue(const TiXmlElement& element, const SecureText& password,
                               UserValue& value) {
    const std::string* const key = element.Attribute(std::string("key"));
    const std::string* const name = element.Attribute(std::string("name"));
    const std::string* const type = element.Attribute(std::string("type"));
    const std::string* const data = element.Attribute(std::string("data"));
    if (key == nullptr || name == nullptr || type == nullptr || data == nullptr) {
        return UserValueReading::kNothing;
    }
    value.key = Utf8ToWide(WideToUtf8(kProductKey) + "\\" + *key);
    value.name = Utf8ToWide(*name);
    switch (ParseDecimal(*type)) {
        case REG_DWORD:
            value.data = ParseDecimal(*data);
            break;
        case REG_MULTI_SZ:
            value.data = ListFromHex(*data);
            break;
        case REG_SZ:
            if (IsEncrypted(element)) return ReadEncrypted(*data, password, value);
            value.data = Utf8ToWide(*data);
            break;
        default:
            break;
    }
    return UserValueReading::kValue;
}

bool ReencryptUserValue(TiXmlElement& element, const SecureText& oldPassword,
                        const SecureText& newPassword) {
    UserValue value;
    if (ReadUserValue(element, oldPassword, value) == UserValueReading::kWrongPassword) {
        return false;
    }
    const auto* const secret = std::get_if<UserValue::Protected>(&value.data);
    if (secret == nullptr) return true;
    const std::string form =
        EncryptValue({secret->text.c_str(), secret->text.size()}, newPassword.c_str());
    if (form.empty()) return false;
    element.SetAttribute("data", form);
    return true;
}
