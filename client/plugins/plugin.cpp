// A configuration plug-in: carries the settings of one feature between its registry key and its
// element of a configuration file. The build says which feature, by these macros:
//
//   PLUGIN_ELEMENT   name of the element below the file's root
//   PLUGIN_KEY       name of the key below the product key of HKEY_LOCAL_MACHINE
//   PLUGIN_FEATURE   what the feature is called
//   PLUGIN_SECTIONS  subkeys that stand as elements of their own name, separated by blanks and with
//                    "/" between levels
//
// The element holds a comment that names the feature and then the key: its values (value_types.h)
// and its subkeys, <key name="..."> or sections, each again with its values and subkeys.
#include <config_plugin.h>

#include <algorithm>

#include "client/plugins/value_types.h"
#include "common/handles.h"
#include "common/xml_file.h"

#define PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr const WCHAR* kFeatureKey = TEXT("software\\Verdane\\Sentrel\\" PLUGIN_KEY);
constexpr const char* kRootElement = "sentrel_configuration";
constexpr int kFailed = 1;
constexpr int kNotSupported = ERROR_NOT_SUPPORTED;

// --- Registry -----------------------------------------------------------------------------------

bool SubkeyNames(HKEY key, std::vector<WString>& names) {
    constexpr DWORD kLongestKeyName = 255;
    WCHAR name[kLongestKeyName + 1];
    for (DWORD index = 0;; ++index) {
        DWORD length = kLongestKeyName + 1;
        const LSTATUS result =
            RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS) return true;
        if (result != ERROR_SUCCESS) return false;
        names.emplace_back(name, length);
    }
}

bool ReadValues(HKEY key, std::vector<RegistryValue>& values) {
    constexpr DWORD kLongestValueName = 16383;
    WString name(kLongestValueName + 1, WCHAR{0});
    SecureBytes data(256);
    for (DWORD index = 0;; ++index) {
        DWORD length = kLongestValueName + 1;
        DWORD type = REG_NONE;
        auto size = static_cast<DWORD>(data.size());
        LSTATUS result =
            RegEnumValueW(key, index, name.data(), &length, nullptr, &type, data.data(), &size);
        while (result == ERROR_MORE_DATA) {
            data.resize(std::max(data.size() * 2, std::size_t{size}));
            length = kLongestValueName + 1;
            size = static_cast<DWORD>(data.size());
            result =
                RegEnumValueW(key, index, name.data(), &length, nullptr, &type, data.data(), &size);
        }
        if (result == ERROR_NO_MORE_ITEMS) return true;
        if (result != ERROR_SUCCESS) return false;
        values.push_back({WString(name, 0, length), type, {data.begin(), data.begin() + size}});
    }
}

// --- Sections -----------------------------------------------------------------------------------

// Paths below the feature's key compare as the registry compares them; section names are ASCII.
bool SamePath(WStringView one, WStringView other) {
    const auto lower = [](WCHAR unit) {
        return unit >= 'A' && unit <= 'Z' ? static_cast<WCHAR>(unit - 'A' + 'a') : unit;
    };
    return std::ranges::equal(one, other, {}, lower, lower);
}

// The element name of the section at a path below the feature's key; empty when it is none.
WString SectionElement(WStringView path) {
    for (WString& section : SplitText(TEXT(PLUGIN_SECTIONS), TEXT(" "))) {
        std::ranges::replace(section, TEXT('/'), TEXT('\\'));
        if (SamePath(section, path)) return section.substr(section.find_last_of(TEXT('\\')) + 1);
    }
    return {};
}

TiXmlElement ElementOfKey(const WString& path, const WString& name) {
    const WString section = SectionElement(path);
    if (!section.empty()) return TiXmlElement(WideToUtf8(section));
    TiXmlElement element("key");
    SetTextAttribute(element, "name", name);
    return element;
}

// --- Export -------------------------------------------------------------------------------------

// Adds the values and subkeys of the key at `path` below the feature's key to `element`, and goes
// on past what cannot be carried over. True when everything was.
bool KeyToXml(HKEY key, const WString& path, const WCHAR* password, TiXmlElement& element,
              int depth) {
    std::vector<RegistryValue> values;
    std::vector<WString> names;
    bool complete = ReadValues(key, values);
    for (const RegistryValue& value : values) {
        if (!ValueToXml(key, value, password, element)) complete = false;
    }
    if (!SubkeyNames(key, names)) complete = false;
    for (const WString& name : names) {
        const WString subpath = path.empty() ? name : path + TEXT('\\') + name;
        UniqueRegKey subkey;
        if (depth == kMaxXmlDepth ||
            RegOpenKeyExW(key, name.c_str(), 0, KEY_READ, subkey.put()) != ERROR_SUCCESS) {
            complete = false;
            continue;
        }
        TiXmlNode* child = element.InsertEndChild(ElementOfKey(subpath, name));
        if (!KeyToXml(subkey.get(), subpath, password, *child->ToElement(), depth + 1)) {
            complete = false;
        }
    }
    return complete;
}

void RemoveOwnElements(TiXmlElement& root) {
    while (TiXmlElement* own = root.FirstChildElement(PLUGIN_ELEMENT)) root.RemoveChild(own);
}

int Export(const WCHAR* file, const WCHAR* password) {
    constexpr int kOwnDepth = 2;  // of the feature's element, the root's being 1
    const std::string path = WideToAnsi(file);
    TiXmlDocument document;
    if (!LoadXmlFile(path, document)) return kFailed;
    TiXmlElement* root = document.RootElement();
    if (root == nullptr || root->ValueStr() != kRootElement) return kFailed;

    RemoveOwnElements(*root);
    TiXmlNode* own = root->InsertEndChild(TiXmlElement(PLUGIN_ELEMENT));
    own->InsertEndChild(TiXmlComment(" " PLUGIN_FEATURE " "));

    UniqueRegKey key;
    const LSTATUS opened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kFeatureKey, 0, KEY_READ, key.put());
    bool complete = opened == ERROR_FILE_NOT_FOUND;  // a feature without settings
    if (opened == ERROR_SUCCESS) {
        complete = KeyToXml(key.get(), {}, password, *own->ToElement(), kOwnDepth);
    }
    return SaveXmlFile(path, document) && complete ? 0 : kFailed;
}

int GuardedExport(const WCHAR* file, const WCHAR* password) noexcept {
    try {
        return file == nullptr ? kFailed : Export(file, password);
    } catch (...) {
        return kFailed;
    }
}

}  // namespace

PLUGIN_EXPORT int WINAPI ExportToXml(const WCHAR* file, const WCHAR* /*sessionId*/,
                                     const WCHAR* password) {
    return GuardedExport(file, password);
}

PLUGIN_EXPORT int WINAPI AdvancedOp(const WCHAR* file, const WCHAR* operation,
                                    const WCHAR* /*sessionId*/, const WCHAR* password) {
    if (operation == nullptr || WStringView(operation) != TEXT("export-install")) {
        return kNotSupported;
    }
    return GuardedExport(file, password);
}
