#include "registry_access.h"

#include <algorithm>

namespace {

struct Root {
    WStringView name;
    WStringView shortName;
    HKEY key;
};

const Root kRoots[] = {
    {TEXT("HKEY_LOCAL_MACHINE"), TEXT("HKLM"), HKEY_LOCAL_MACHINE},
    {TEXT("HKEY_CURRENT_USER"), TEXT("HKCU"), HKEY_CURRENT_USER},
    {TEXT("HKEY_CLASSES_ROOT"), TEXT("HKCR"), HKEY_CLASSES_ROOT},
    {TEXT("HKEY_USERS"), TEXT("HKU"), HKEY_USERS},
};

bool IsPath(WStringView path) {
    std::size_t depth = 0;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find(WCHAR{'\\'}), path.size());
        if (end == 0 || end > kMaxKeyName || ++depth > kMaxKeyDepth) return false;
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return true;
}

}  // namespace

std::optional<KeyName> ParseKeyName(WStringView text, RootForms forms) {
    const std::size_t end = std::min(text.find(WCHAR{'\\'}), text.size());
    const WStringView rootName = text.substr(0, end);
    WStringView path = text.substr(std::min(end + 1, text.size()));
    while (!path.empty() && path.back() == '\\') path.remove_suffix(1);
    const auto* const root = std::ranges::find_if(kRoots, [&](const Root& known) {
        return EqualIgnoringCase(rootName, known.name) ||
               (forms == RootForms::kLongAndShort && EqualIgnoringCase(rootName, known.shortName));
    });
    if (root == std::end(kRoots) || !IsPath(path)) return std::nullopt;
    KeyName name{root->key, WString(path), WString(root->name)};
    if (!path.empty()) (name.full += WCHAR{'\\'}) += path;
    return name;
}

void Check(LSTATUS code) {
    if (code != ERROR_SUCCESS) throw RegistryError{code};
}

UniqueRegKey OpenKey(HKEY parent, const WString& path, REGSAM rights) {
    UniqueRegKey key;
    Check(RegOpenKeyExW(parent, path.c_str(), 0, rights, key.put()));
    return key;
}

UniqueRegKey CreateKey(HKEY parent, const WString& path) {
    UniqueRegKey key;
    Check(RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                          KEY_READ | KEY_WRITE, nullptr, key.put(), nullptr));
    return key;
}

std::vector<RegValue> ValuesOf(HKEY key) {
    std::vector<RegValue> values;
    std::vector<WCHAR> name(kMaxValueName + 1);
    std::vector<BYTE> data(4096);
    for (;;) {
        RegValue value;
        auto length = static_cast<DWORD>(name.size());
        auto size = static_cast<DWORD>(data.size());
        const LSTATUS result = RegEnumValueW(key, static_cast<DWORD>(values.size()), name.data(),
                                             &length, nullptr, &value.type, data.data(), &size);
        if (result == ERROR_NO_MORE_ITEMS) return values;
        if (result == ERROR_MORE_DATA) {
            data.resize(size);
            continue;
        }
        Check(result);
        value.name.assign(name.data(), length);
        value.data.assign(data.begin(), data.begin() + size);
        values.push_back(std::move(value));
    }
}

std::vector<WString> SubkeysOf(HKEY key) {
    std::vector<WString> names;
    for (;;) {
        WCHAR name[kMaxKeyName + 1];
        DWORD length = kMaxKeyName + 1;
        const LSTATUS result = RegEnumKeyExW(key, static_cast<DWORD>(names.size()), name, &length,
                                             nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS) return names;
        Check(result);
        names.emplace_back(name, length);
    }
}

bool HasValue(HKEY key, const WString& name) {
    return RegQueryValueExW(key, name.c_str(), nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

void SetValue(HKEY key, const RegValue& value) {
    Check(RegSetValueExW(key, value.name.c_str(), 0, value.type, value.data.data(),
                         static_cast<DWORD>(value.data.size())));
}
