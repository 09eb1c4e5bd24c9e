#include "client/utilsdll/random.h"

#include <openssl/rand.h>
#include <windows.h>
// (after the types)
#include <bcrypt.h>

#include <climits>

namespace utilsdll {

bool DrawRandom(std::span<BYTE> bytes) {
    if (bytes.size() > INT_MAX) return false;
    SecureBytes others(bytes.size());
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1 ||
        BCryptGenRandom(nullptr, others.data(), static_cast<ULONG>(others.size()),
                        BCRYPT_USE_SYSTEM_PREFERRED_RNG) != 0) {
        return false;
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] ^= others[i];
    return true;
}

}  // namespace utilsdll
