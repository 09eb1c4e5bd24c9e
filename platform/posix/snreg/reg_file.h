// Registry files (.reg), version 5.00: text in UTF-16LE with a byte order mark or in UTF-8, lines
// ended by CR LF or LF. Nothing here reads or writes files or the registry.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "key_name.h"

// What a file asks for, in its order. A value operation belongs to the kOpenKey before it.
enum class RegAction {
    kOpenKey,      // [key]: made when missing
    kDeleteKey,    // [-key]: with everything below it; may be missing
    kSetValue,     // "name"=..., @=...
    kDeleteValue,  // "name"=-; may be missing
};

struct RegOperation {
    RegAction action;
    KeyName key;            // of key operations
    WString name{};         // of value operations; empty: the default value
    DWORD type = REG_NONE;  // of kSetValue
    std::vector<BYTE> data{};
};

struct RegFileError {
    std::size_t line;  // counted from 1
    std::string what;
};

// Reads a whole file: all of its operations, or its first error. Text values get their terminator.
// Comments (;) may stand on lines of their own and after keys and values. Text goes to the end of
// its line at most; other text, and data whose size does not fit its type, stands as hex(type):.
std::variant<std::vector<RegOperation>, RegFileError> ParseRegFile(std::string_view bytes);

// The pieces of a file, each with its line ends: the first line, then for every key its line, its
// values and an empty line.
WString RegFileStart();
WString RegKeyLine(WStringView fullName);
WString RegValueLine(WStringView name, DWORD type, const std::vector<BYTE>& data);
WString RegKeyEnd();

// True for names that a file can hold: they have no line ends and no null characters.
bool FitsRegFile(WStringView name);

// The bytes of a file with this text: UTF-16LE with its mark.
std::string RegFileBytes(WStringView text);
