// Where the client keeps its settings in the registry. Paths are
// relative to a hive's root; the registry compares them without case.
#pragma once

#include <windows.h>

#define SENTREL_PRODUCT_KEY "software\\Verdane\\Sentrel"

// The product key, below HKEY_LOCAL_MACHINE and below each user's hive.
inline constexpr const WCHAR* kProductKey = TEXT(SENTREL_PRODUCT_KEY);

// HKEY_LOCAL_MACHINE: the user interface's settings.
inline constexpr const WCHAR* kUiKey = TEXT(SENTREL_PRODUCT_KEY "\\SA_UI");
inline constexpr const WCHAR* kDisableBackupValue = TEXT("disable_backup");  // REG_DWORD
inline constexpr const WCHAR* kLanguageValue = TEXT("LCID");  // REG_DWORD, a locale id

// HKEY_LOCAL_MACHINE: the management's settings.
inline constexpr const WCHAR* kEndpointControlKey = TEXT(SENTREL_PRODUCT_KEY "\\SA_ESNAC");
inline constexpr const WCHAR* kPolicyNameValue = TEXT("policy_name");  // REG_SZ

// HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER, product key: key material of protected files.
inline constexpr const WCHAR* kDataKeyValue = TEXT("datakey");    // REG_BINARY, 1 to 64 bytes
inline constexpr const WCHAR* kDataSaltValue = TEXT("datasalt");  // REG_BINARY, 1 to 64 bytes
