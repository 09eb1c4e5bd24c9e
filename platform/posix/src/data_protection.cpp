// CryptProtectData and CryptUnprotectData. A protected blob, version 2:
//
//   offset  size
//   0       4     "SNDP"
//   4       1     version, 2
//   5       1     scope: 0 machine, 1 user
//   6       28    random salt; its first 12 bytes are the nonce, too
//   34      n     data, encrypted with AES-256-GCM
//   34 + n  16    tag, over the first 34 bytes as well
//
// The key of a blob is HMAC-SHA256(key of the scope, salt followed by the caller's entropy).
#include <dpapi.h>
#include <winbase.h>

#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "crypto.h"
#include "last_error.h"
#include "protection_key.h"

using namespace platform;

namespace {

struct BlobHeader {
    BYTE magic[4] = {'S', 'N', 'D', 'P'};
    BYTE version = 2;
    BYTE scope = 0;
    BYTE salt[28] = {};
};
static_assert(sizeof(BlobHeader) == 34);

constexpr int kTagSize = 16;
constexpr DWORD kOverhead = sizeof(BlobHeader) + kTagSize;
constexpr DWORD kMaxSize = std::numeric_limits<int>::max() - kOverhead;  // the cipher counts in int

enum class Direction { kDecrypt = 0, kEncrypt = 1 };

bool DeriveKey(const ProtectionKey& scopeKey, const BlobHeader& header, const DATA_BLOB* entropy,
               ProtectionKey& key) {
    const std::size_t entropySize = entropy == nullptr ? 0 : entropy->cbData;
    std::vector<BYTE> message(sizeof header.salt + entropySize);
    std::memcpy(message.data(), header.salt, sizeof header.salt);
    if (entropySize > 0) {
        std::memcpy(message.data() + sizeof header.salt, entropy->pbData, entropySize);
    }
    const bool isMade = EVP_Q_mac(CryptoContext(), "HMAC", nullptr, "SHA256", nullptr,
                                  scopeKey.data(), scopeKey.size(), message.data(), message.size(),
                                  key.data(), key.size(), nullptr) != nullptr;
    OPENSSL_cleanse(message.data(), message.size());
    return isMade;
}

// Encrypts and makes the tag, or decrypts and checks it; the header is authenticated with the data.
bool Transform(Direction direction, const ProtectionKey& key, const BlobHeader& header,
               const BYTE* input, DWORD size, BYTE* output, BYTE* tag) {
    const CipherPointer cipher(EVP_CIPHER_fetch(CryptoContext(), "AES-256-GCM", nullptr));
    const CipherContextPointer context(EVP_CIPHER_CTX_new());
    const auto update = [&](BYTE* to, const void* from, std::size_t bytes) {
        int written = 0;
        return bytes == 0 ||
               EVP_CipherUpdate(context.get(), to, &written, static_cast<const BYTE*>(from),
                                static_cast<int>(bytes)) == 1;
    };
    const auto exchangeTag = [&](Direction when, int command) {
        return when != direction || EVP_CIPHER_CTX_ctrl(context.get(), command, kTagSize, tag) == 1;
    };
    BYTE none[1];
    int written = 0;
    return cipher && context &&
           EVP_CipherInit_ex2(context.get(), cipher.get(), key.data(), header.salt,
                              static_cast<int>(direction), nullptr) == 1 &&
           exchangeTag(Direction::kDecrypt, EVP_CTRL_AEAD_SET_TAG) &&
           update(nullptr, &header, sizeof header) && update(output, input, size) &&
           EVP_CipherFinal_ex(context.get(), none, &written) == 1 &&
           exchangeTag(Direction::kEncrypt, EVP_CTRL_AEAD_GET_TAG);
}

// Memory for the caller, wiped and freed unless it is handed out.
struct WipeAndFree {
    std::size_t size;
    void operator()(BYTE* bytes) const {
        OPENSSL_cleanse(bytes, size);
        LocalFree(bytes);
    }
};
using LocalMemory = std::unique_ptr<BYTE, WipeAndFree>;

LocalMemory AllocateLocal(std::size_t size) {
    return {static_cast<BYTE*>(LocalAlloc(LMEM_FIXED, size)), WipeAndFree{size}};
}

// Checks what both directions take; false with the last error set.
bool CheckArguments(const DATA_BLOB* in, const DATA_BLOB* entropy, const void* reserved,
                    const void* prompt, DWORD flags, const DATA_BLOB* out) {
    const auto isWhole = [](const DATA_BLOB& blob) {
        return blob.pbData != nullptr || blob.cbData == 0;
    };
    if (in == nullptr || out == nullptr || reserved != nullptr || !isWhole(*in) ||
        (entropy != nullptr && !isWhole(*entropy))) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    constexpr DWORD kSupported = CRYPTPROTECT_LOCAL_MACHINE | CRYPTPROTECT_UI_FORBIDDEN;
    if (prompt != nullptr || (flags & ~kSupported) != 0) return Fail(ERROR_NOT_SUPPORTED);
    return true;
}

bool Protect(const DATA_BLOB& in, const DATA_BLOB* entropy, ProtectionScope scope, DATA_BLOB& out) {
    if (in.cbData > kMaxSize) return Fail(ERROR_INVALID_PARAMETER);
    BlobHeader header;
    header.scope = static_cast<BYTE>(scope);
    FillRandom(header.salt, sizeof header.salt);
    ProtectionKey scopeKey;
    ProtectionKey key;
    if (!LoadProtectionKey(scope, MissingKey::kMake, scopeKey)) return false;
    LocalMemory blob = AllocateLocal(kOverhead + in.cbData);
    if (!blob) return false;
    std::memcpy(blob.get(), &header, sizeof header);
    BYTE* const content = blob.get() + sizeof header;
    if (!DeriveKey(scopeKey, header, entropy, key) ||
        !Transform(Direction::kEncrypt, key, header, in.pbData, in.cbData, content,
                   content + in.cbData)) {
        return Fail(ERROR_GEN_FAILURE);
    }
    out = {kOverhead + in.cbData, blob.release()};
    return true;
}

bool Unprotect(const DATA_BLOB& in, const DATA_BLOB* entropy, DATA_BLOB& out) {
    const BlobHeader known;
    BlobHeader header;
    if (in.cbData < kOverhead || in.cbData > kMaxSize) return Fail(ERROR_INVALID_DATA);
    std::memcpy(&header, in.pbData, sizeof header);
    if (std::memcmp(&header, &known, offsetof(BlobHeader, scope)) != 0 ||
        header.scope > static_cast<BYTE>(ProtectionScope::kUser)) {
        return Fail(ERROR_INVALID_DATA);
    }
    ProtectionKey scopeKey;
    ProtectionKey key;
    if (!LoadProtectionKey(static_cast<ProtectionScope>(header.scope), MissingKey::kFail,
                           scopeKey)) {
        // Without the key that made it, a blob is one of another machine or account.
        return Fail(GetLastError() == ERROR_FILE_NOT_FOUND ? ERROR_INVALID_DATA : GetLastError());
    }
    const DWORD size = in.cbData - kOverhead;
    LocalMemory plain = AllocateLocal(size);
    if (!plain) return false;
    BYTE* const content = in.pbData + sizeof header;
    if (!DeriveKey(scopeKey, header, entropy, key)) return Fail(ERROR_GEN_FAILURE);
    if (!Transform(Direction::kDecrypt, key, header, content, size, plain.get(), content + size)) {
        return Fail(ERROR_INVALID_DATA);
    }
    out = {size, plain.release()};
    return true;
}

}  // namespace

extern "C" {

BOOL WINAPI CryptProtectData(DATA_BLOB* pDataIn, LPCWSTR /*szDataDescr*/,
                             DATA_BLOB* pOptionalEntropy, PVOID pvReserved,
                             CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct, DWORD dwFlags,
                             DATA_BLOB* pDataOut) {
    if (!CheckArguments(pDataIn, pOptionalEntropy, pvReserved, pPromptStruct, dwFlags, pDataOut)) {
        return FALSE;
    }
    const auto scope = (dwFlags & CRYPTPROTECT_LOCAL_MACHINE) != 0 ? ProtectionScope::kMachine
                                                                   : ProtectionScope::kUser;
    return Protect(*pDataIn, pOptionalEntropy, scope, *pDataOut);
}

BOOL WINAPI CryptUnprotectData(DATA_BLOB* pDataIn, LPWSTR* ppszDataDescr,
                               DATA_BLOB* pOptionalEntropy, PVOID pvReserved,
                               CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct, DWORD dwFlags,
                               DATA_BLOB* pDataOut) {
    if (!CheckArguments(pDataIn, pOptionalEntropy, pvReserved, pPromptStruct, dwFlags, pDataOut)) {
        return FALSE;
    }
    if (ppszDataDescr != nullptr) return Fail(ERROR_NOT_SUPPORTED);
    return Unprotect(*pDataIn, pOptionalEntropy, *pDataOut);
}
}
