#include "crypto.h"

#include <bcrypt.h>
#include <sys/random.h>

#include <cerrno>
#include <cstdlib>

namespace platform {

OSSL_LIB_CTX* CryptoContext() {
    // Never freed: destructors of the program may still need it after this library's own have run.
    static OSSL_LIB_CTX* const context = OSSL_LIB_CTX_new();
    return context;
}

bool DrawRandom(void* memory, std::size_t size) {
    auto* next = static_cast<unsigned char*>(memory);
    while (size > 0) {
        const ssize_t drawn = getrandom(next, size, 0);
        if (drawn < 0 && errno == EINTR) continue;
        if (drawn <= 0) return false;
        next += drawn;
        size -= static_cast<std::size_t>(drawn);
    }
    return true;
}

void FillRandom(void* memory, std::size_t size) {
    if (!DrawRandom(memory, size)) std::abort();  // no key may be made without it
}

}  // namespace platform

extern "C" NTSTATUS WINAPI BCryptGenRandom(BCRYPT_ALG_HANDLE hAlgorithm, BYTE* pbBuffer,
                                           ULONG cbBuffer, ULONG dwFlags) {
    if (hAlgorithm != nullptr || dwFlags != BCRYPT_USE_SYSTEM_PREFERRED_RNG) {
        return hAlgorithm == nullptr && dwFlags == 0 ? STATUS_INVALID_HANDLE : STATUS_NOT_SUPPORTED;
    }
    if (pbBuffer == nullptr && cbBuffer != 0) return STATUS_INVALID_PARAMETER;
    return platform::DrawRandom(pbBuffer, cbBuffer) ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
}
