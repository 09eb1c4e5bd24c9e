#include "registry/user_configuration.h"

#include <configuration_format.h>
#include <product_registry.h>
#include <utilsdll.h>

#include <memory>
#include <regex>
#include <string>
#include <variant>
#include <vector>

#include "app/services/user_context.h"
#include "common/handles.h"
#include "common/hex.h"
#include "common/xml_file.h"
#include "protect/encrypted_forms.h"
#include "registry/user_section.h"

namespace {

constexpr DWORD kValueNameCapacity = 260;  // characters
constexpr const char* kValueElement = "value";

// The client's per-gateway keys, matched against a key's whole path.
constexpr const char* kGatewayKey = R"(software\\Verdane\\Sentrel\\SA_UI\\VPN-\d+\.\d+\.\d+\.\d+)";

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

// --- Export -----------------------------------------------------------------------------------

// One `value` element that an export writes.
struct UserConfigValue {
    std::string key;  // path below the product key
    std::string name;
    DWORD type = REG_NONE;
    bool enc = false;  // carried encrypted
    std::string data;  // text, "EncX " form or hexadecimal
    DWORD dword = 0;
};

struct WalkContext {
    SecureText password;
    std::vector<UserConfigValue> values;
};

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
    auto element = std::make_unique<TiXmlElement>(kValueElement);
    element->SetAttribute("key", value.key);
    element->SetAttribute("name", value.name);
    element->SetAttribute("type", std::to_string(value.type));
    if (value.type == REG_SZ || value.type == REG_MULTI_SZ) {
        element->SetAttribute("data", value.data);
    } else if (value.type == REG_DWORD) {
        element->SetAttribute("data", std::to_string(static_cast<LONG>(value.dword)));
    }
    if (value.enc) element->SetAttribute("enc", "1");
    section->LinkEndChild(element.release());
}

// --- Import -----------------------------------------------------------------------------------

// The values of a file's section; none when there is no section, or one of them does not decrypt.
std::vector<UserValue> ReadSection(const WString& file, const SecureText& password) {
    TiXmlDocument document;
    if (!LoadXmlFile(file, document)) return {};
    const TiXmlElement* const root = document.FirstChildElement(kRootElement);
    const TiXmlElement* const section =
        root == nullptr ? nullptr : root->FirstChildElement(kUserConfigurationElement);
    if (section == nullptr) return {};

    std::vector<UserValue> values;
    for (const TiXmlElement* element = section->FirstChildElement(); element != nullptr;
         element = element->NextSiblingElement()) {
        UserValue value;
        switch (ReadUserValue(*element, password, value)) {
            case UserValueReading::kValue:
                values.push_back(std::move(value));
                break;
            case UserValueReading::kNothing:
                break;
            case UserValueReading::kWrongPassword:
                return {};
        }
    }
    return values;
}

// Opens the key at `path`; makes every key on the way to it that is missing.
UniqueRegKey OpenOrCreateKey(HKEY userRoot, const WString& path) {
    UniqueRegKey key(reg_openkeyW(userRoot, path.c_str()));
    if (key) return key;
    WString level;
    for (const WString& piece : SplitText(path, TEXT("\\"))) {
        level.append(piece).append(TEXT("\\"));
        const UniqueRegKey made(reg_createkeyW(userRoot, level.c_str()));
    }
    return UniqueRegKey(reg_openkeyW(userRoot, path.c_str()));
}

// Writes the data of one value, by its kind.
struct ValueWriter {
    HKEY key;
    const WCHAR* name;

    void operator()(std::monostate /*nothing*/) const {}
    void operator()(DWORD number) const { reg_setDWORDW(key, name, number); }
    void operator()(const WString& text) const { reg_setstringW(key, name, text.c_str()); }
    void operator()(const UserValue::Protected& secret) const {
        reg_setstring_enc_cuW(key, name, secret.text.c_str());
    }
    void operator()(const std::vector<BYTE>& list) const {
        reg_setmultistringW(key, name, reinterpret_cast<const WCHAR*>(list.data()));
    }
};

void WriteValues(HKEY userRoot, const std::vector<UserValue>& values) {
    UniqueRegKey key;
    WString openPath;  // of the key that is open: consecutive values share it
    for (const UserValue& value : values) {
        if (value.key.empty() || value.name.empty()) return;
        if (!key || openPath != value.key) {
            key = OpenOrCreateKey(userRoot, value.key);
            openPath = value.key;
        }
        if (key) std::visit(ValueWriter{key.get(), value.name.c_str()}, value.data);
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
    WriteValues(userRoot.get(), values);
}
