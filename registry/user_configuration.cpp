#include "registry/user_configuration.h"

#include <product_registry.h>
#include <utilsdll.h>

#include <cerrno>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "app/services/user_context.h"
#include "common/handles.h"
#include "common/hex.h"
#include "common/xml_file.h"
#include "protect/encrypted_forms.h"

namespace {

constexpr DWORD kValueNameCapacity = 260;  // characters
constexpr const char* kValueElement = "value";

// The client's per-gateway keys, matched against a key's whole path.
constexpr const char* kGatewayKey = R"(software\\Verdane\\Sentrel\\SA_UI\\VPN-\d+\.\d+\.\d+\.\d+)";

// One `value` element.
struct UserConfigValue {
    std::string key;  // export: path below the product key; import: from the hive's root
    std::string name;
    DWORD type = REG_NONE;
    bool enc = false;  // carried encrypted
    std::string data;  // text, "EncX " form or hexadecimal
    DWORD dword = 0;
};

// A text that the utility library handed out, wiped and given back at the end.
class LibraryText {
  public:
    LibraryText() = default;
    LibraryText(const LibraryText&) = delete;
    LibraryText& operator=(const LibraryText&) = delete;
    ~LibraryText() {
        if (data_ == nullptr) return;
        WipeMemory(data_, WStringView(data_).size() * sizeof(WCHAR));
        reg_free(data_);
    }
    WCHAR** put() { return &data_; }
    const WCHAR* get() const { return data_; }

  private:
    WCHAR* data_ = nullptr;
};

// Lets the thread act as the session's user where it can, and for itself again at the end, whatever
// it acted as before.
class AsSessionUser {
  public:
    explicit AsSessionUser(DWORD sessionId) { ImpersonateSessionUser(sessionId); }
    AsSessionUser(const AsSessionUser&) = delete;
    AsSessionUser& operator=(const AsSessionUser&) = delete;
    ~AsSessionUser() { RevertToSelf(); }
};

struct WalkContext {
    SecureText password;
    std::vector<UserConfigValue> values;
};

// --- Export -----------------------------------------------------------------------------------

bool IsGatewayKey(const WCHAR* path) {
    static const std::regex gatewayKey(kGatewayKey, std::regex::ECMAScript | std::regex::icase);
    return std::regex_match(WideToUtf8(path), gatewayKey);
}

// The path with every occurrence of the product key and its backslash removed.
WString BelowProductKey(WStringView path) {
    const WString prefix = WString(kProductKey) + WCHAR{'\\'};
    WString rest;
    while (!path.empty()) {
        if (EqualIgnoringCase(path.substr(0, prefix.size()), prefix)) {
            path.remove_prefix(prefix.size());
        } else {
            rest += path.front();
            path.remove_prefix(1);
        }
    }
    return rest;
}

void ReadString(HKEY key, const WCHAR* name, const SecureText& password, UserConfigValue& value) {
    LibraryText text;
    const bool isRead = reg_getstringW(key, name, text.put(), nullptr) && text.get() != nullptr;
    const WStringView view = isRead ? WStringView(text.get()) : WStringView();
    value.enc = reg_is_encrypted_valueW(key, name);
    if (value.enc) {
        if (isRead) value.data = EncryptValue(view, password.c_str());
    } else {
        value.data = WideToUtf8(view);
    }
}

void ReadMultiString(HKEY key, const WCHAR* name, UserConfigValue& value) {
    LibraryText list;
    DWORD bytes = 0;
    if (!reg_getmultistringW(key, name, list.put(), &bytes)) return;
    value.data = BytesToHex(reinterpret_cast<const BYTE*>(list.get()), bytes);
}

// Visitor of the walk: collects the values of one key. Always goes on.
bool CollectUserValues(HKEY key, const WCHAR* path, void* context) {
    auto& walk = *static_cast<WalkContext*>(context);
    if (IsGatewayKey(path)) return true;
    DWORD count = 0;
    if (!reg_getvaluecount(key, &count, 0)) return true;
    const std::string keyPath = WideToUtf8(BelowProductKey(path));
    for (DWORD index = 0; index < count; ++index) {
        WCHAR name[kValueNameCapacity] = {};
        UserConfigValue value;
        if (!reg_getvaluenamebyindexW(key, index, name, kValueNameCapacity) ||
            RegQueryValueExW(key, name, nullptr, &value.type, nullptr, nullptr) != ERROR_SUCCESS) {
            continue;
        }
        value.name = WideToUtf8(name);
        switch (value.type) {
            case REG_SZ:
                ReadString(key, name, walk.password, value);
                break;
            case REG_MULTI_SZ:
                ReadMultiString(key, name, value);
                break;
            case REG_DWORD:
                reg_getDWORDW(key, name, &value.dword);
                break;
            default:
                break;
        }
        value.key = keyPath;
        walk.values.push_back(std::move(value));
    }
    return true;
}

// The values of the session's user.
std::vector<UserConfigValue> CollectValues(const SecureText& password, DWORD sessionId) {
    WalkContext context;
    const AsSessionUser asUser(sessionId);
    UniqueRegKey userRoot;
    if (RegOpenCurrentUser(KEY_READ, userRoot.put()) != ERROR_SUCCESS) return {};
    const UniqueRegKey productKey(reg_openkeyW(userRoot.get(), kProductKey));
    if (!productKey) return {};
    context.password = password.c_str();
    reg_walk2W(productKey.get(), kProductKey, CollectUserValues, &context);
    return std::move(context.values);
}

void AppendValue(TiXmlElement* section, const UserConfigValue& value) {
    TiXmlElement element(kValueElement);
    element.SetAttribute("key", value.key);
    element.SetAttribute("name", value.name);
    element.SetAttribute("type", std::to_string(value.type));
    if (value.type == REG_SZ || value.type == REG_MULTI_SZ) {
        element.SetAttribute("data", value.data);
    } else if (value.type == REG_DWORD) {
        element.SetAttribute("data", std::to_string(static_cast<LONG>(value.dword)));
    }
    if (value.enc) element.SetAttribute("enc", "1");
    section->InsertEndChild(element);
}

// --- Import -----------------------------------------------------------------------------------

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

// What can be made of one element.
enum class Reading { kValue, kNothing, kWrongPassword };

Reading ReadValue(const TiXmlElement& element, const SecureText& password, UserConfigValue& value) {
    const std::string* const key = element.Attribute(std::string("key"));
    const std::string* const name = element.Attribute(std::string("name"));
    const std::string* const type = element.Attribute(std::string("type"));
    const std::string* const data = element.Attribute(std::string("data"));
    const std::string* const enc = element.Attribute(std::string("enc"));
    if (key == nullptr || name == nullptr || type == nullptr || data == nullptr) {
        return Reading::kNothing;
    }
    value.key = WideToUtf8(kProductKey) + "\\" + *key;
    value.name = *name;
    value.enc = enc != nullptr && *enc != "0";
    value.type = ParseDecimal(*type);
    if (value.type == REG_DWORD) value.dword = ParseDecimal(*data);
    if (value.type == REG_SZ || value.type == REG_MULTI_SZ) value.data = *data;
    if (value.type != REG_SZ || !value.enc) return Reading::kValue;

    // A backup writes no more than this when it could not encrypt the value: there is nothing to
    // restore, and no sign of a wrong password.
    if (value.data.size() < kEncryptedValueMarker.size()) return Reading::kNothing;
    SecureText text;
    return DecryptValue(value.data, password.c_str(), text) ? Reading::kValue
                                                            : Reading::kWrongPassword;
}

// The values of a file's section; none when there is no section, or one of them does not decrypt.
std::vector<UserConfigValue> ReadSection(const WString& file, const SecureText& password) {
    TiXmlDocument document;
    if (!LoadXmlFile(file, document)) return {};
    const TiXmlElement* const root = document.FirstChildElement("sentrel_configuration");
    const TiXmlElement* const section =
        root == nullptr ? nullptr : root->FirstChildElement(kUserConfigurationElement);
    if (section == nullptr) return {};

    std::vector<UserConfigValue> values;
    for (const TiXmlElement* element = section->FirstChildElement(); element != nullptr;
         element = element->NextSiblingElement()) {
        UserConfigValue value;
        switch (ReadValue(*element, password, value)) {
            case Reading::kValue:
                values.push_back(std::move(value));
                break;
            case Reading::kNothing:
                break;
            case Reading::kWrongPassword:
                return {};
        }
    }
    return values;
}

// Makes every key on the way to `path` that is missing.
void CreateKeys(HKEY userRoot, const WString& path) {
    if (UniqueRegKey(reg_openkeyW(userRoot, path.c_str()))) return;
    WString level;
    for (const WString& piece : SplitText(path, TEXT("\\"))) {
        level.append(piece).append(TEXT("\\"));
        const UniqueRegKey key(reg_createkeyW(userRoot, level.c_str()));
    }
}

void WriteValue(HKEY key, const WString& name, const UserConfigValue& value,
                const SecureText& password) {
    switch (value.type) {
        case REG_DWORD:
            reg_setDWORDW(key, name.c_str(), value.dword);
            break;
        case REG_SZ:
            if (value.enc) {
                SecureText text;
                if (DecryptValue(value.data, password.c_str(), text)) {
                    reg_setstring_enc_cuW(key, name.c_str(), text.c_str());
                }
            } else {
                reg_setstringW(key, name.c_str(), Utf8ToWide(value.data).c_str());
            }
            break;
        case REG_MULTI_SZ: {
            std::vector<BYTE> bytes;
            if (!HexToBytes(value.data, bytes)) break;
            // Terminated whatever the text was, without half a UTF-16 unit at its end.
            bytes.resize(bytes.size() / sizeof(WCHAR) * sizeof(WCHAR));
            bytes.resize(bytes.size() + 2 * sizeof(WCHAR));
            reg_setmultistringW(key, name.c_str(), reinterpret_cast<const WCHAR*>(bytes.data()));
            break;
        }
        default:
            break;
    }
}

void WriteValues(HKEY userRoot, const std::vector<UserConfigValue>& values,
                 const SecureText& password) {
    for (const UserConfigValue& value : values) {
        const WString path = Utf8ToWide(value.key);
        const WString name = Utf8ToWide(value.name);
        if (path.empty() || name.empty()) return;
        CreateKeys(userRoot, path);
        const UniqueRegKey key(reg_openkeyW(userRoot, path.c_str()));
        if (key) WriteValue(key.get(), name, value, password);
    }
}

}  // namespace

void ExportUserConfiguration(TiXmlElement* root, const SecureText& password, DWORD sessionId) {
    const auto values = CollectValues(password, sessionId);

    if (TiXmlElement* const previous = root->FirstChildElement(kUserConfigurationElement)) {
        root->RemoveChild(previous);
    }
    TiXmlNode* const section = root->InsertEndChild(TiXmlElement(kUserConfigurationElement));
    for (const UserConfigValue& value : values) AppendValue(section->ToElement(), value);
}

void ImportUserConfiguration(const WString& file, const SecureText& password, DWORD sessionId) {
    const auto values = ReadSection(file, password);
    if (values.empty()) return;

    const AsSessionUser asUser(sessionId);
    UniqueRegKey userRoot;
    if (RegOpenCurrentUser(KEY_READ, userRoot.put()) != ERROR_SUCCESS) return;
    // The user's product key must exist; it is never made here.
    if (!UniqueRegKey(reg_openkeyW(userRoot.get(), kProductKey))) return;
    WriteValues(userRoot.get(), values, password);
}
