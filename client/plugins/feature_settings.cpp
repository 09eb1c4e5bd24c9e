#include "client/plugins/feature_settings.h"

#include <algorithm>

namespace {

// The paths of a feature's sections below its key.
std::vector<WString> Sections(const Feature& feature) {
    std::vector<WString> sections = SplitText(feature.sections, TEXT(" "));
    for (WString& section : sections) std::ranges::replace(section, TEXT('/'), TEXT('\\'));
    return sections;
}

// The name of the subkey that an element stands for; empty when it stands for none.
WString SubkeyName(const Feature& feature, const TiXmlElement& element, const WString& path) {
    WString name;
    if (element.ValueStr() == "key") {
        GetTextAttribute(element, "name", name);
    } else {
        const WString section = Utf8ToWide(element.ValueStr());
        if (!SectionElement(feature, Subpath(path, section)).empty()) name = section;
    }
    return name;
}

// Lists what cannot be read, where it is to be listed. True when the reading goes on.
bool Note(std::vector<UnreadableValue>* unreadable, const WString& path, const WString& name) {
    if (unreadable == nullptr) return false;
    unreadable->push_back({path, name});
    return true;
}

}  // namespace

WString Subpath(const WString& path, const WString& name) {
    return path.empty() ? name : path + TEXT('\\') + name;
}

WString SectionElement(const Feature& feature, WStringView path) {
    for (const WString& section : Sections(feature)) {
        if (EqualIgnoringCase(section, path))
            return section.substr(section.find_last_of(TEXT('\\')) + 1);
    }
    return {};
}

bool HasSections(const Feature& feature, WStringView path) {
    return std::ranges::any_of(Sections(feature), [&](const WString& section) {
        const auto separator = section.find_last_of(TEXT('\\'));
        return EqualIgnoringCase(
            separator == WString::npos ? WString() : section.substr(0, separator), path);
    });
}

bool ReadFeature(const Feature& feature, const TiXmlElement& element, const WCHAR* password,
                 KeyPlan& plan, std::vector<UnreadableValue>* unreadable) {
    for (const auto* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (child->ValueStr() == "value") {
            ValueToWrite value;
            if (ValueFromXml(*child, password, value)) {
                plan.values.push_back(std::move(value));
            } else if (!Note(unreadable, plan.path, value.value.name)) {
                return false;
            }
            continue;
        }
        const WString name = SubkeyName(feature, *child, plan.path);
        if (name.empty()) continue;
        if (name.find(TEXT('\\')) != WString::npos) {  // no name of one key
            if (!Note(unreadable, Subpath(plan.path, name), {})) return false;
            continue;
        }
        KeyPlan& subkey = plan.subkeys.emplace_back();
        subkey.path = Subpath(plan.path, name);
        if (!ReadFeature(feature, *child, password, subkey, unreadable)) return false;
    }
    return true;
}

bool ReencryptFeature(const Feature& feature, TiXmlElement& element, const WCHAR* oldPassword,
                      const WCHAR* newPassword, const WString& path) {
    for (auto* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (child->ValueStr() == "value") {
            if (!ReencryptValue(*child, oldPassword, newPassword)) return false;
            continue;
        }
        const WString name = SubkeyName(feature, *child, path);
        if (!name.empty() &&
            !ReencryptFeature(feature, *child, oldPassword, newPassword, Subpath(path, name))) {
            return false;
        }
    }
    return true;
}
