// What the commands ask of the registry, with the owners of the common helpers.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/handles.h"
#include "common/text.h"

// Bounds of the registry: characters of a key's and a value's name, and keys below a root.
inline constexpr std::size_t kMaxKeyName = 255;
inline constexpr std::size_t kMaxValueName = 16383;
inline constexpr std::size_t kMaxKeyDepth = 512;

struct KeyName {
    HKEY root = nullptr;
    WString path;  // without backslashes at its end; empty: the root itself
    WString full;  // the root's long name and the path
};

// Reads "HKEY_LOCAL_MACHINE\Software\..." without regard to the case of the root's name; nothing
// for an unknown root or a path that the registry does not allow. The short forms (HKLM) are the
// command line's; files have the long ones only.
enum class RootForms { kLong, kLongAndShort };
std::optional<KeyName> ParseKeyName(WStringView text, RootForms forms);

struct RegValue {
    WString name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

// A registry call that failed, with its code.
struct RegistryError {
    LSTATUS code;
};

// Throws RegistryError unless the code is ERROR_SUCCESS.
void Check(LSTATUS code);

// These throw RegistryError.
UniqueRegKey OpenKey(HKEY parent, const WString& path, REGSAM rights);
UniqueRegKey CreateKey(HKEY parent, const WString& path);
// In the registry's own order.
std::vector<RegValue> ValuesOf(HKEY key);
std::vector<WString> SubkeysOf(HKEY key);
bool HasValue(HKEY key, const WString& name);
void SetValue(HKEY key, const RegValue& value);
