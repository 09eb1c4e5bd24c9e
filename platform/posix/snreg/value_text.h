// Types and data of values as people read and write them on the command line.
#pragma once

#include <optional>
#include <vector>

#include "common/text.h"

// REG_SZ, REG_DWORD ...; an unknown type by its number.
WString TypeName(DWORD type);
// Without regard to case; nothing for an unknown name.
std::optional<DWORD> TypeNamed(WStringView name);

// The data as "query" shows it: texts as they are with "\0" between those of a REG_MULTI_SZ,
// numbers as 0x..., anything else - also data of the wrong size - as hexadecimal digits.
WString DataText(DWORD type, const std::vector<BYTE>& data);

// The data that a text stands for in "add"; nothing when it does not fit the type. `separator`
// stands between the texts of a REG_MULTI_SZ.
std::optional<std::vector<BYTE>> DataOfText(DWORD type, WStringView text, WStringView separator);
