// Registry files (.reg), version 5.00: text in UTF-16LE with a byte order mark or in UTF-8, lines
// ended by CR LF or LF. Nothing here reads or writes files or the registry.
#pragma once

#include <string_view>

#include "registry_access.h"

// What a file asks for, in its order. A value operation belongs to the kOpenKey before it.
enum class RegAction {
    kOpenKey,      // [key]: made when missing
    kDeleteKey,    // [-key]: with everything below it; may be missing
    kSetValue,     // "name"=..., @=...
    kDeleteValue,  // "name"=-; may be missing
};

struct RegOperation {
    RegAction action;
    KeyName key;       // of key operations
    RegValue value{};  // of value operations; an empty name: the default value
};

struct RegFileError {
    std::size_t line;  // counted from 1
    std::string what;
};

// Reads a whole file; throws its first error as RegFileError. Text values get their terminator.
// Comments (;) may stand on lines of their own and after keys and values. Text goes to the end of
// its line at most; other text, and data whose size does not fit its type, stands as hex(type):.
std::vector<RegOperation> ParseRegFile(std::string_view bytes);

// The text of a file: its start, then each key with its values.
WString RegFileStart();
WString RegKeyText(WStringView fullName, const std::vector<RegValue>& values);

// True for names that a file can hold: they have no line ends and no null characters.
bool FitsRegFile(WStringView name);

// The bytes of a file with this text: UTF-16LE with its mark.
std::string RegFileBytes(WStringView text);

// Text as a value holds it, with its terminator.
std::vector<BYTE> TextData(WStringView text);
