#include "client/include/sncryptdll.h"

#include <windows.h>
// (after the types)
#include <bcrypt.h>

#include "client/utilsdll/boundary.h"
#include "client/utilsdll/client_state.h"

extern "C" int SncGetRandomBytes(void* buffer, int size) {
    if (buffer == nullptr || size < 0) return -1;
    const NTSTATUS status =
        BCryptGenRandom(nullptr, static_cast<BYTE*>(buffer), static_cast<ULONG>(size),
                        BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    return BCRYPT_SUCCESS(status) ? 0 : -1;
}

extern "C" int SncFipsIsFipsModeEnabled() {
    return Guarded(true, [] { return utilsdll::ReadStateFlag(utilsdll::kCryptoFipsState); }) ? 1
                                                                                             : 0;
}
