#include "cryptd/drbg_state.h"

#include "common/handles.h"
#include "cryptd/SNCryptdAPI.h"

namespace {

constexpr const WCHAR* kStateValue = TEXT("DrbgState");

}  // namespace

int CryptdReadDrbgState(BYTE* state) {
    UniqueRegKey key;
    DWORD type = REG_NONE;
    DWORD size = kDrbgStateSize;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kCryptdStateKey, 0, KEY_QUERY_VALUE, key.put()) !=
            ERROR_SUCCESS ||
        RegQueryValueExW(key.get(), kStateValue, nullptr, &type, state, &size) != ERROR_SUCCESS) {
        return -1;
    }
    return type == REG_BINARY ? 0 : -2;
}

int CryptdWriteDrbgState(const BYTE* state) {
    UniqueRegKey key;
    const bool written = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kCryptdStateKey, 0, KEY_WRITE,
                                       key.put()) == ERROR_SUCCESS &&
                         RegSetValueExW(key.get(), kStateValue, 0, REG_BINARY, state,
                                        kDrbgStateSize) == ERROR_SUCCESS;
    return written ? 0 : -1;
}
