#include "admin/backup_content.h"

#include <configuration_format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "config/password_verifier.h"
#include "registry/user_configuration.h"
#include "registry/user_section.h"

const char* const kUserSection = kUserConfigurationElement;

namespace {

constexpr const char* kHeaderAttributes[] = {"generatedby", "policy"};
constexpr const char* kHeaderElements[] = {
    "sentrel_version",       "version",    "exported_by_version", "date",
    "partial_configuration", "os_version", "os_architecture"};

SecureBytes Bytes(const void* data, std::size_t size) {
    const auto* const bytes = static_cast<const BYTE*>(data);
    return {bytes, bytes + size};
}
SecureBytes Bytes(WStringView text) {
    return Bytes(text.data(), text.size() * sizeof(WCHAR));
}
SecureBytes Bytes(const SecureText& text) {
    return Bytes(WStringView(text.c_str(), text.size()));
}

// --- A module -----------------------------------------------------------------------------------

// Moves what the plan holds.
void AddKey(KeyPlan& plan, ContentModule& module) {
    module.keys.push_back(plan.path);
    for (ValueToWrite& planned : plan.values) {
        ContentValue& value = module.values.emplace_back();
        value.key = plan.path;
        value.name = std::move(planned.value.name);
        value.type = planned.value.type;
        value.isProtected = planned.form == ValueToWrite::Form::kProtected;
        value.data =
            planned.form == ValueToWrite::Form::kStored ? planned.value.data : Bytes(planned.text);
    }
    for (KeyPlan& subkey : plan.subkeys) AddKey(subkey, module);
}

ContentModule ReadModule(const Feature& feature, const TiXmlElement& element,
                         const SecureText& password) {
    ContentModule module = {
        .name = feature.element, .feature = &feature, .keys = {}, .values = {}, .damaged = {}};
    KeyPlan plan;
    ReadFeature(feature, element, password.c_str(), plan, &module.damaged);
    AddKey(plan, module);
    return module;
}

// --- The user section ---------------------------------------------------------------------------

// The data of a value by its kind.
struct UserData {
    ContentValue& value;

    void operator()(std::monostate /*nothing*/) const {}
    void operator()(DWORD number) const {
        value.type = REG_DWORD;
        value.data = Bytes(&number, sizeof number);
    }
    void operator()(const WString& text) const {
        value.type = REG_SZ;
        value.data = Bytes(WStringView(text));
    }
    void operator()(const UserValue::Protected& secret) const {
        value.type = REG_SZ;
        value.isProtected = true;
        value.data = Bytes(secret.text);
    }
    void operator()(const std::vector<BYTE>& list) const {
        value.type = REG_MULTI_SZ;
        value.data = Bytes(list.data(), list.size());
    }
};

// The path of a user value's key below the product key.
WString BelowProductKey(const WString& key) {
    return key.substr(std::min(key.size(), WStringView(kProductKey).size() + 1));
}

// A value of a type that a backup carries without data is not damaged, but not there either.
bool IsOfCarriedType(const TiXmlElement& element) {
    const std::string* const type = element.Attribute(std::string("type"));
    return type == nullptr || *type == "1" || *type == "4" || *type == "7";
}

ContentModule ReadUserSection(const TiXmlElement& section, const SecureText& password) {
    ContentModule module = {
        .name = kUserSection, .feature = nullptr, .keys = {}, .values = {}, .damaged = {}};
    for (const auto* element = section.FirstChildElement(); element != nullptr;
         element = element->NextSiblingElement()) {
        UserValue read;
        const UserValueReading reading = ReadUserValue(*element, password, read);
        const WString key = BelowProductKey(read.key);
        if (reading == UserValueReading::kValue) {
            ContentValue& value = module.values.emplace_back();
            value.key = key;
            value.name = read.name;
            std::visit(UserData{value}, read.data);
        } else if (reading == UserValueReading::kWrongPassword || IsOfCarriedType(*element)) {
            module.damaged.push_back({key, read.name});
        }
    }
    return module;
}

// --- The document -------------------------------------------------------------------------------

bool IsHeader(std::string_view name) {
    return std::ranges::any_of(kHeaderElements, [&](const char* known) { return name == known; });
}

const Feature* FindFeature(std::string_view name) {
    const auto* const found = std::ranges::find_if(
        kFeatures, [&](const Feature& feature) { return name == feature.element; });
    return found == std::end(kFeatures) ? nullptr : found;
}

std::string TextOf(const TiXmlElement& element) {
    const char* const text = element.GetText();
    return text == nullptr ? "" : text;
}

std::vector<std::pair<std::string, std::string>> ReadHeader(const TiXmlElement& root) {
    std::vector<std::pair<std::string, std::string>> header;
    for (const char* name : kHeaderAttributes) {
        if (const char* const text = root.Attribute(name)) header.emplace_back(name, text);
    }
    for (const char* name : kHeaderElements) {
        if (const auto* const element = root.FirstChildElement(name)) {
            header.emplace_back(name, TextOf(*element));
        }
    }
    return header;
}

// Calls `module` with each element that a restore reads, the first of its name, and lists the
// others.
template <typename Visit>
void VisitModules(TiXmlElement& root, BackupContent& content, const Visit& module) {
    for (auto* element = root.FirstChildElement(); element != nullptr;
         element = element->NextSiblingElement()) {
        const std::string& name = element->ValueStr();
        if (IsHeader(name)) continue;
        const Feature* const feature = FindFeature(name);
        const bool isRead = feature != nullptr || name == kUserSection;
        if (isRead && root.FirstChildElement(name) == element) {
            module(feature, *element);
        } else {
            content.unknown.push_back(name);
        }
    }
    for (const Feature& feature : kFeatures) {
        if (root.FirstChildElement(feature.element) == nullptr) {
            content.missing.emplace_back(feature.element);
        }
    }
}

Verifier CheckVerifier(const TiXmlElement& root, const SecureText& password) {
    const char* const verifier = root.Attribute(kVerifierAttribute);
    if (verifier == nullptr || *verifier == '\0') return Verifier::kNone;
    return CheckPasswordVerifier(verifier, password) ? Verifier::kGood : Verifier::kWrong;
}

}  // namespace

std::size_t BackupContent::CountDamaged() const {
    std::size_t count = 0;
    for (const ContentModule& module : modules) count += module.damaged.size();
    return count;
}

std::size_t BackupContent::CountProtected() const {
    std::size_t count = 0;
    for (const ContentModule& module : modules) {
        count += static_cast<std::size_t>(
            std::ranges::count_if(module.values, &ContentValue::isProtected));
    }
    return count;
}

bool HasUserSection(const BackupContent& content) {
    return std::ranges::any_of(
        content.modules, [](const ContentModule& module) { return module.feature == nullptr; });
}

ValueCount CountValues(const TiXmlElement& element) {
    ValueCount count;
    for (const auto* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (child->ValueStr() == "value") {
            ++count.all;
            const char* const enc = child->Attribute("enc");
            if (enc != nullptr && std::strcmp(enc, "0") != 0) ++count.isProtected;
        } else {
            const ValueCount below = CountValues(*child);
            count.all += below.all;
            count.isProtected += below.isProtected;
        }
    }
    return count;
}

bool NeedsPassword(const TiXmlElement& root) {
    const char* const verifier = root.Attribute(kVerifierAttribute);
    return (verifier != nullptr && *verifier != '\0') || CountValues(root).isProtected != 0;
}

BackupContent ListContent(TiXmlElement& root) {
    BackupContent content;
    content.header = ReadHeader(root);
    VisitModules(root, content, [&](const Feature* feature, const TiXmlElement& element) {
        content.modules.push_back({.name = element.ValueStr(),
                                   .feature = feature,
                                   .keys = {},
                                   .values = {},
                                   .damaged = {}});
    });
    return content;
}

BackupContent ReadContent(TiXmlElement& root, const SecureText& password) {
    BackupContent content;
    content.header = ReadHeader(root);
    content.verifier = CheckVerifier(root, password);
    VisitModules(root, content, [&](const Feature* feature, const TiXmlElement& element) {
        content.modules.push_back(feature == nullptr ? ReadUserSection(element, password)
                                                     : ReadModule(*feature, element, password));
    });
    return content;
}

bool ChangePassword(TiXmlElement& root, const SecureText& oldPassword,
                    const SecureText& newPassword) {
    bool isDone = true;
    BackupContent ignored;
    VisitModules(root, ignored, [&](const Feature* feature, TiXmlElement& element) {
        if (feature != nullptr) {
            isDone = isDone &&
                     ReencryptFeature(*feature, element, oldPassword.c_str(), newPassword.c_str());
            return;
        }
        for (auto* value = element.FirstChildElement(); value != nullptr;
             value = value->NextSiblingElement()) {
            isDone = isDone && ReencryptUserValue(*value, oldPassword, newPassword);
        }
    });
    const std::string verifier = MakePasswordVerifier(newPassword);
    root.SetAttribute(kVerifierAttribute, verifier);
    return isDone && !verifier.empty();
}
