// Names of registry keys as people write them: a root and a path below it.
#pragma once

#include <optional>

#include "common/text.h"

// Bounds of the registry: characters of a key's and a value's name, and keys below a root.
inline constexpr std::size_t kLongestKeyName = 255;
inline constexpr std::size_t kLongestValueName = 16383;
inline constexpr std::size_t kDeepestKey = 512;

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

// True when the texts are equal but for the case of the letters A to Z.
bool EqualWithoutCase(WStringView left, WStringView right);
