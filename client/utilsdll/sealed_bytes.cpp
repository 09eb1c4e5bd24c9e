#include "client/utilsdll/sealed_bytes.h"

#include <windows.h>
// (after the types)
#include <dpapi.h>

#include <utility>

namespace utilsdll {

bool SealedBytes::Seal(SecureBytes bytes) {
    constexpr std::size_t kBlock = CRYPTPROTECTMEMORY_BLOCK_SIZE;
    const std::size_t size = bytes.size();
    bytes.resize((size + kBlock - 1) / kBlock * kBlock);
    const bool sealed = CryptProtectMemory(bytes.data(), static_cast<DWORD>(bytes.size()),
                                           CRYPTPROTECTMEMORY_SAME_PROCESS) != FALSE;
    protected_ = sealed ? std::move(bytes) : SecureBytes();
    size_ = sealed ? size : 0;
    return sealed;
}

bool SealedBytes::Open(SecureBytes& bytes) const {
    if (protected_.empty()) return false;
    SecureBytes copy(protected_);
    if (!CryptUnprotectMemory(copy.data(), static_cast<DWORD>(copy.size()),
                              CRYPTPROTECTMEMORY_SAME_PROCESS)) {
        return false;
    }
    copy.resize(size_);
    bytes.swap(copy);
    return true;
}

}  // namespace utilsdll
