// What the commands ask of the registry, with the owners of the common helpers.
#pragma once

#include <optional>
#include <vector>

#include "common/handles.h"
#include "key_name.h"

struct RegValue {
    WString name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

// A registry call that failed, with its code.
struct RegistryError {
    LSTATUS code;
};

// These throw RegistryError.
UniqueRegKey OpenKey(HKEY parent, const WString& path, REGSAM rights);
UniqueRegKey CreateKey(HKEY parent, const WString& path);
void DeleteTree(const KeyName& key);
// In the registry's own order.
std::vector<RegValue> ValuesOf(HKEY key);
std::vector<WString> SubkeysOf(HKEY key);
// Nothing when there is no such value.
std::optional<RegValue> FindValue(HKEY key, const WString& name);
void SetValue(HKEY key, const RegValue& value);
void DeleteValue(HKEY key, const WString& name);
