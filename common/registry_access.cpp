#include "common/registry_access.h"

#include <algorithm>

#include "common/handles.h"

bool ReadValues(HKEY key, std::vector<RegistryValue>& values) {
    constexpr DWORD kMaxValueName = 16383;
    WString name(kMaxValueName + 1, WCHAR{0});
    SecureBytes data(256);
    for (DWORD index = 0;; ++index) {
        DWORD length = kMaxValueName + 1;
        DWORD type = REG_NONE;
        auto size = static_cast<DWORD>(data.size());
        LSTATUS result =
            RegEnumValueW(key, index, name.data(), &length, nullptr, &type, data.data(), &size);
        while (result == ERROR_MORE_DATA) {
            data.resize(std::max(data.size() * 2, std::size_t{size}));
            length = kMaxValueName + 1;
            size = static_cast<DWORD>(data.size());
            result =
                RegEnumValueW(key, index, name.data(), &length, nullptr, &type, data.data(), &size);
        }
        if (result == ERROR_NO_MORE_ITEMS) return true;
        if (result != ERROR_SUCCESS) return false;
        values.push_back({WString(name, 0, length), type, {data.begin(), data.begin() + size}});
    }
}

bool SubkeyNames(HKEY key, std::vector<WString>& names) {
    constexpr DWORD kMaxKeyName = 255;
    WCHAR name[kMaxKeyName + 1];
    for (DWORD index = 0;; ++index) {
        DWORD length = kMaxKeyName + 1;
        const LSTATUS result =
            RegEnumKeyExW(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (result == ERROR_NO_MORE_ITEMS) return true;
        if (result != ERROR_SUCCESS) return false;
        names.emplace_back(name, length);
    }
}

KeptValues::State KeptValues::Read(const WCHAR* name, DWORD wantedType, DWORD limit,
                                   std::vector<BYTE>& bytes) const {
    UniqueRegKey opened;
    std::vector<BYTE> data(limit);
    DWORD type = REG_NONE;
    DWORD size = limit;
    LSTATUS result = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_QUERY_VALUE, opened.put());
    if (result == ERROR_SUCCESS) {
        result = RegQueryValueExW(opened.get(), name, nullptr, &type, data.data(), &size);
    }
    if (result == ERROR_FILE_NOT_FOUND) return State::kNone;
    if (result != ERROR_SUCCESS || type != wantedType) return State::kUnreadable;
    data.resize(size);
    bytes.swap(data);
    return State::kRead;
}

bool KeptValues::Write(const WCHAR* name, DWORD type, const void* data, std::size_t size) const {
    UniqueRegKey opened;
    return RegCreateKeyExW(HKEY_LOCAL_MACHINE, key, 0, nullptr, REG_OPTION_NON_VOLATILE,
                           KEY_SET_VALUE, nullptr, opened.put(), nullptr) == ERROR_SUCCESS &&
           RegSetValueExW(opened.get(), name, 0, type, static_cast<const BYTE*>(data),
                          static_cast<DWORD>(size)) == ERROR_SUCCESS;
}

bool KeptValues::Remove(const WCHAR* name) const {
    UniqueRegKey opened;
    LSTATUS result = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_SET_VALUE, opened.put());
    if (result == ERROR_SUCCESS) result = RegDeleteValueW(opened.get(), name);
    return result == ERROR_SUCCESS || result == ERROR_FILE_NOT_FOUND;
}
