// A configuration plug-in: carries the settings of one feature between its registry key and its
// element of a configuration file.
//
// The element holds a comment that names the feature and then the key: its values (value_types.h)
// and its subkeys, <key name="..."> or sections, each again with its values and subkeys.
//
// An import makes the key what the element says: its values are written, and only then is
// removed what the element does not name, so that each value is the old or the new one at any
// moment. A key that has sections below it is merged instead - a file may carry some sections and
// not others. A feature without an element in the file keeps its settings. Nothing is written when
// any value of the element cannot be read.
#include <client_export.h>
#include <config_plugin.h>
#include <configuration_format.h>
#include <shlwapi.h>
#include <utilsdll.h>

#include <algorithm>
#include <set>

#include "client/plugins/feature_settings.h"
#include "common/handles.h"
#include "common/registry_access.h"
#include "common/xml_file.h"

#define PLUGIN_EXPORT extern "C" CLIENT_EXPORT

namespace {

constexpr int kFailed = 1;
constexpr int kLocked = ERROR_ACCESS_DENIED;
constexpr int kNotSupported = ERROR_NOT_SUPPORTED;

TiXmlElement ElementOfKey(const WString& path, const WString& name) {
    const WString section = SectionElement(kFeature, path);
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
        if (!ValueToXml(value, password, element)) complete = false;
    }
    if (!SubkeyNames(key, names)) complete = false;
    for (const WString& name : names) {
        const WString subpath = Subpath(path, name);
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
    while (TiXmlElement* own = root.FirstChildElement(kFeature.element)) root.RemoveChild(own);
}

int Export(const WCHAR* file, const WCHAR* password) {
    constexpr int kOwnDepth = 2;  // of the feature's element, the root's being 1
    TiXmlDocument document;
    if (!LoadXmlFile(file, document)) return kFailed;
    TiXmlElement* root = document.RootElement();
    if (root == nullptr || root->ValueStr() != kRootElement) return kFailed;

    RemoveOwnElements(*root);
    TiXmlNode* own = root->InsertEndChild(TiXmlElement(kFeature.element));
    own->InsertEndChild(TiXmlComment((" " + std::string(kFeature.name) + " ").c_str()));

    UniqueRegKey key;
    const LSTATUS opened = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kFeature.key, 0, KEY_READ, key.put());
    bool complete = opened == ERROR_FILE_NOT_FOUND;  // a feature without settings
    if (opened == ERROR_SUCCESS) {
        complete = KeyToXml(key.get(), {}, password, *own->ToElement(), kOwnDepth);
    }
    return SaveXmlFile(file, document) && complete ? 0 : kFailed;
}

// --- Import -------------------------------------------------------------------------------------

WString WholePath(const WString& path) {
    return path.empty() ? WString(kFeature.key) : Subpath(kFeature.key, path);
}

using NameSet = std::set<WString, LessIgnoringCase>;

// `previous`: the values that the key had before those of the plan were written.
bool RemoveUnnamedValues(HKEY key, const KeyPlan& plan,
                         const std::vector<RegistryValue>& previous) {
    NameSet named;
    if (!previous.empty()) {
        for (const ValueToWrite& planned : plan.values) named.insert(planned.value.name);
    }
    bool complete = true;
    for (const RegistryValue& value : previous) {
        if (!named.contains(value.name) && !reg_removevalueW(key, value.name.c_str())) {
            complete = false;
        }
    }
    return complete;
}

bool RemoveUnnamedSubkeys(HKEY key, const KeyPlan& plan) {
    NameSet named;
    for (const KeyPlan& subkey : plan.subkeys) named.insert(subkey.path);
    std::vector<WString> names;
    if (!SubkeyNames(key, names)) return false;
    bool complete = true;
    for (const WString& name : names) {
        const WString path = Subpath(plan.path, name);
        if (!named.contains(path) &&
            SHDeleteKeyW(HKEY_LOCAL_MACHINE, WholePath(path).c_str()) != ERROR_SUCCESS) {
            complete = false;
        }
    }
    return complete;
}

// Carries out a plan, and goes on past what cannot be written. True when everything was.
bool WriteKey(const KeyPlan& plan) {
    const WString whole = WholePath(plan.path);
    const UniqueRegKey key(reg_createkeyW(HKEY_LOCAL_MACHINE, whole.c_str()));
    if (!key) return false;
    std::vector<RegistryValue> previous;
    bool complete = HasSections(kFeature, plan.path) || ReadValues(key.get(), previous);
    for (const ValueToWrite& value : plan.values) {
        if (!WriteValue(key.get(), value)) complete = false;
    }
    for (const KeyPlan& subkey : plan.subkeys) {
        if (!WriteKey(subkey)) complete = false;
    }
    if (HasSections(kFeature, plan.path)) return complete;
    if (!RemoveUnnamedValues(key.get(), plan, previous)) complete = false;
    if (!RemoveUnnamedSubkeys(key.get(), plan)) complete = false;
    return complete;
}

int Import(const WCHAR* file, const WCHAR* password) {
    TiXmlDocument document;
    if (!LoadXmlFile(file, document)) return kFailed;
    const TiXmlElement* root = document.RootElement();
    if (root == nullptr || root->ValueStr() != kRootElement) return kFailed;
    const TiXmlElement* own = root->FirstChildElement(kFeature.element);
    if (own == nullptr) return 0;

    KeyPlan plan;
    if (!ReadFeature(kFeature, *own, password, plan)) return kFailed;
    if (!sec_may_write_registry()) return kLocked;
    return WriteKey(plan) ? 0 : kFailed;
}

// --- The exports --------------------------------------------------------------------------------

using Job = int (*)(const WCHAR* file, const WCHAR* password);

int Guarded(Job job, const WCHAR* file, const WCHAR* password) noexcept {
    try {
        return file == nullptr ? kFailed : job(file, password);
    } catch (...) {
        return kFailed;
    }
}

struct AdvancedOperation {
    const WCHAR* name;
    Job job;
};
constexpr AdvancedOperation kAdvancedOperations[] = {
    {TEXT("export-install"), Export},          {TEXT("import+CA"), Import},
    {TEXT("import_installer_config"), Import}, {TEXT("import_installer_config+ca"), Import},
    {TEXT("import_gwyip_config"), Import},     {TEXT("gwy_import"), Import},
};

}  // namespace

PLUGIN_EXPORT int WINAPI ExportToXml(const WCHAR* file, const WCHAR* /*sessionId*/,
                                     const WCHAR* password) {
    return Guarded(Export, file, password);
}

PLUGIN_EXPORT int WINAPI ImportFromXml(const WCHAR* file, const WCHAR* /*sessionId*/,
                                       const WCHAR* password) {
    return Guarded(Import, file, password);
}

PLUGIN_EXPORT int WINAPI AdvancedOp(const WCHAR* file, const WCHAR* operation,
                                    const WCHAR* /*sessionId*/, const WCHAR* password) {
    for (const AdvancedOperation& row : kAdvancedOperations) {
        if (operation != nullptr && WStringView(operation) == row.name) {
            return Guarded(row.job, file, password);
        }
    }
    return kNotSupported;
}
