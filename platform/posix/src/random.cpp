#include <bcrypt.h>

#include "crypto.h"

using namespace platform;

extern "C" NTSTATUS WINAPI BCryptGenRandom(BCRYPT_ALG_HANDLE hAlgorithm, BYTE* pbBuffer,
                                           ULONG cbBuffer, ULONG dwFlags) {
    if (hAlgorithm != nullptr || dwFlags != BCRYPT_USE_SYSTEM_PREFERRED_RNG) {
        return hAlgorithm == nullptr && dwFlags == 0 ? STATUS_INVALID_HANDLE : STATUS_NOT_SUPPORTED;
    }
    if (pbBuffer == nullptr && cbBuffer != 0) return STATUS_INVALID_PARAMETER;
    return DrawRandom(pbBuffer, cbBuffer) ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}
