// Values of the registry, written and read by the system's own calls, as another program would.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/handles.h"

// Sets a value of a key - of the root itself when the path is empty - to these bytes, whatever its
// type. The key is made where it is missing.
inline void SetRaw(HKEY root, const std::basic_string<WCHAR>& path, const WCHAR* name, DWORD type,
                   const void* data, std::size_t size) {
    UniqueRegKey key;
    ASSERT_EQ(RegCreateKeyExW(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                              KEY_SET_VALUE, nullptr, key.put(), nullptr),
              ERROR_SUCCESS);
    ASSERT_EQ(RegSetValueExW(key.get(), name, 0, type, static_cast<const BYTE*>(data),
                             static_cast<DWORD>(size)),
              ERROR_SUCCESS);
}
inline void SetRaw(HKEY root, const std::basic_string<WCHAR>& path, const WCHAR* name, DWORD type,
                   const std::vector<BYTE>& bytes) {
    SetRaw(root, path, name, type, bytes.data(), bytes.size());
}
// A text of the type REG_SZ.
inline void SetRaw(HKEY root, const std::basic_string<WCHAR>& path, const WCHAR* name,
                   const std::basic_string<WCHAR>& text) {
    SetRaw(root, path, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
}

// The bytes of a value; none when it cannot be read.
inline std::vector<BYTE> RawValue(HKEY root, const std::basic_string<WCHAR>& path,
                                  const WCHAR* name) {
    UniqueRegKey key;
    DWORD size = 0;
    RegOpenKeyExW(root, path.c_str(), 0, KEY_QUERY_VALUE, key.put());
    RegQueryValueExW(key.get(), name, nullptr, nullptr, nullptr, &size);
    std::vector<BYTE> bytes(size);
    const LSTATUS result = RegQueryValueExW(key.get(), name, nullptr, nullptr, bytes.data(), &size);
    return result == ERROR_SUCCESS ? bytes : std::vector<BYTE>();
}
// The text of a value, up to its terminator.
inline std::basic_string<WCHAR> RawText(HKEY root, const std::basic_string<WCHAR>& path,
                                        const WCHAR* name) {
    std::vector<BYTE> bytes = RawValue(root, path, name);
    bytes.resize(bytes.size() + sizeof(WCHAR));
    return reinterpret_cast<const WCHAR*>(bytes.data());
}
