// CryptProtectMemory and CryptUnprotectMemory: AES-256-XTS, the only common mode that keeps the
// length, repeats no pattern inside the memory and reuses no key stream, under a key that exists in
// this process alone.
#include <dpapi.h>
#include <sys/mman.h>

#include <algorithm>
#include <new>

#include "crypto.h"
#include "last_error.h"

using namespace platform;

namespace {

using MemoryKey = SecretKey<64>;
constexpr DWORD kUnitSize = 1 << 16;  // a data unit of the mode; its number is the tweak

// Drawn once, on a page of its own that is kept out of the swap and of core dumps. Null when there
// is no memory for it.
const MemoryKey* ProcessKey() {
    static const MemoryKey* const key = []() -> const MemoryKey* {
        void* const page = mmap(nullptr, sizeof(MemoryKey), PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) return nullptr;
        mlock(page, sizeof(MemoryKey));
        madvise(page, sizeof(MemoryKey), MADV_DONTDUMP);
        auto* const made = new (page) MemoryKey;
        FillRandom(made->data(), made->size());
        mprotect(page, sizeof(MemoryKey), PROT_READ);
        return made;
    }();
    return key;
}

enum class Direction { kDecrypt = 0, kEncrypt = 1 };

bool TransformUnit(BYTE* bytes, DWORD size, DWORD number, Direction direction) {
    const CipherPointer cipher(EVP_CIPHER_fetch(CryptoContext(), "AES-256-XTS", nullptr));
    const CipherContextPointer context(EVP_CIPHER_CTX_new());
    const BYTE tweak[16] = {static_cast<BYTE>(number), static_cast<BYTE>(number >> 8)};
    int written = 0;
    return ProcessKey() != nullptr && cipher && context &&
           EVP_CipherInit_ex2(context.get(), cipher.get(), ProcessKey()->data(), tweak,
                              static_cast<int>(direction), nullptr) == 1 &&
           EVP_CipherUpdate(context.get(), bytes, &written, bytes, static_cast<int>(size)) == 1 &&
           written == static_cast<int>(size);
}

BOOL TransformMemory(LPVOID memory, DWORD size, DWORD flags, Direction direction) {
    if (flags == CRYPTPROTECTMEMORY_CROSS_PROCESS || flags == CRYPTPROTECTMEMORY_SAME_LOGON) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    if (flags != CRYPTPROTECTMEMORY_SAME_PROCESS || memory == nullptr ||
        size % CRYPTPROTECTMEMORY_BLOCK_SIZE != 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    auto* const bytes = static_cast<BYTE*>(memory);
    for (DWORD number = 0; number <= size / kUnitSize; ++number) {
        const DWORD start = number * kUnitSize;
        const DWORD length = std::min(kUnitSize, size - start);
        if (length > 0 && !TransformUnit(bytes + start, length, number, direction)) {
            return Fail(ERROR_GEN_FAILURE);
        }
    }
    return TRUE;
}

}  // namespace

extern "C" {

BOOL WINAPI CryptProtectMemory(LPVOID pDataIn, DWORD cbDataIn, DWORD dwFlags) {
    return TransformMemory(pDataIn, cbDataIn, dwFlags, Direction::kEncrypt);
}

BOOL WINAPI CryptUnprotectMemory(LPVOID pDataIn, DWORD cbDataIn, DWORD dwFlags) {
    return TransformMemory(pDataIn, cbDataIn, dwFlags, Direction::kDecrypt);
}
}
