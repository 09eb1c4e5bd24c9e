// The client's own state, kept as values of the key "SA_STATE" below the product key. It belongs to
// no feature, so no backup carries it, and the registry lock does not keep the library from it.
//
// A value that is missing says no. One that cannot be read says yes: a state that is in doubt
// protects.
#pragma once

#include <windows.h>

#include <vector>

#include "common/registry_access.h"

namespace utilsdll {

// Flags, of the type REG_DWORD.
inline constexpr const WCHAR* kManagedState = TEXT("managed");
inline constexpr const WCHAR* kFipsState = TEXT("fips_mode");
inline constexpr const WCHAR* kCryptoFipsState = TEXT("crypto_fips_mode");  // the crypto library's

bool ReadStateFlag(const WCHAR* name);
bool WriteStateFlag(const WCHAR* name, bool on);

// A value of the type REG_BINARY.
using StateBytes = KeptValues::State;
StateBytes ReadStateBytes(const WCHAR* name, std::vector<BYTE>& bytes);
bool WriteStateBytes(const WCHAR* name, const std::vector<BYTE>& bytes);
// True also when there was none.
bool RemoveState(const WCHAR* name);

}  // namespace utilsdll
