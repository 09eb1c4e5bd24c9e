#include "registry_access.h"

#include <shlwapi.h>

namespace {

void Check(LSTATUS code) {
    if (code != ERROR_SUCCESS) throw RegistryError{code};
}

}  // namespace

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

void DeleteTree(const KeyName& key) {
    Check(SHDeleteKeyW(key.root, key.path.c_str()));
}

std::vector<RegValue> ValuesOf(HKEY key) {
    std::vector<RegValue> values;
    std::vector<WCHAR> name(kLongestValueName + 1);
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
        WCHAR name[kLongestKeyName + 1];
        DWORD length = kLongestKeyName + 1;
        const LSTATUS result = RegEnumKeyExW(key, static_cast<DWORD>(names.size()), name, &length,
                                             nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS) return names;
        Check(result);
        names.emplace_back(name, length);
    }
}

std::optional<RegValue> FindValue(HKEY key, const WString& name) {
    RegValue value{name, REG_NONE, {}};
    DWORD size = 0;
    for (;;) {
        value.data.resize(size);
        const LSTATUS result = RegQueryValueExW(key, name.c_str(), nullptr, &value.type,
                                                size == 0 ? nullptr : value.data.data(), &size);
        if (result == ERROR_FILE_NOT_FOUND) return std::nullopt;
        if (result != ERROR_MORE_DATA) Check(result);
        if (result == ERROR_SUCCESS && size <= value.data.size()) break;
    }
    value.data.resize(size);
    return value;
}

void SetValue(HKEY key, const RegValue& value) {
    Check(RegSetValueExW(key, value.name.c_str(), 0, value.type, value.data.data(),
                         static_cast<DWORD>(value.data.size())));
}

void DeleteValue(HKEY key, const WString& name) {
    Check(RegDeleteValueW(key, name.c_str()));
}
