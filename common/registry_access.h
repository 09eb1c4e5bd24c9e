// Reads and writes in the registry that several parts of the client do alike.
#pragma once

#include <windows.h>

#include <vector>

#include "common/secure_text.h"
#include "common/text.h"

// One value of a key.
struct RegistryValue {
    WString name;
    DWORD type = REG_NONE;
    SecureBytes data;  // as stored
};

// Adds the values of the key, in the registry's order. False when not all can be read.
bool ReadValues(HKEY key, std::vector<RegistryValue>& values);

// Adds the names of the key's subkeys, in the registry's order. False when not all can be read.
bool SubkeyNames(HKEY key, std::vector<WString>& names);

// What a part of the client keeps for itself: values of a key of HKEY_LOCAL_MACHINE.
struct KeptValues {
    const WCHAR* key;

    enum class State { kNone, kRead, kUnreadable };

    // Reads a value of one type, of at most `limit` bytes; `bytes` change only when it is read.
    State Read(const WCHAR* name, DWORD wantedType, DWORD limit, std::vector<BYTE>& bytes) const;
    // Makes the key too when there is none.
    bool Write(const WCHAR* name, DWORD type, const void* data, std::size_t size) const;
    // True also when there was none.
    bool Remove(const WCHAR* name) const;
};
