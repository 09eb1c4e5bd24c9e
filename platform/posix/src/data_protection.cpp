// CryptProtectData and CryptUnprotectData. A protected blob, version 1:
//
//   offset  size
//   0       4     "SNDP"
//   4       1     version, 1
//   5       1     scope: 0 machine, 1 user
//   6       2     zero
//   8       4     size of the description in bytes, least significant byte first
//   12      16    random salt
//   28      12    random nonce
//   40      n     description (UTF-16, no terminator) and data, encrypted with AES-256-GCM
//   40 + n  16    tag, over the first 40 bytes as well
//
// The key of a blob is HKDF-SHA256(key of the scope followed by the caller's entropy, salt).
#include <dpapi.h>
#include <openssl/core_names.h>
#include <openssl/params.h>
#include <winbase.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

#include "crypto.h"
#include "last_error.h"
#include "protection_key.h"

namespace platform {
namespace {

struct BlobHeader {
    BYTE magic[4];
    BYTE version;
    BYTE scope;
    BYTE zero[2];
    BYTE descriptionSize[4];
    BYTE salt[16];
    BYTE nonce[12];
};
static_assert(sizeof(BlobHeader) == 40);

constexpr BYTE kMagic[4] = {'S', 'N', 'D', 'P'};
constexpr BYTE kVersion = 1;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kOverhead = sizeof(BlobHeader) + kTagSize;
constexpr char kKeyPurpose[] = "data protection blob, version 1";

BlobHeader NewHeader(ProtectionScope scope, std::size_t descriptionSize) {
    BlobHeader header{};
    std::copy(std::begin(kMagic), std::end(kMagic), header.magic);
    header.version = kVersion;
    header.scope = static_cast<BYTE>(scope);
    for (unsigned i = 0; i < 4; ++i) {
        header.descriptionSize[i] = static_cast<BYTE>(descriptionSize >> (8 * i));
    }
    FillRandom(header.salt, sizeof header.salt);
    FillRandom(header.nonce, sizeof header.nonce);
    return header;
}

std::size_t DescriptionSize(const BlobHeader& header) {
    std::size_t size = 0;
    for (unsigned i = 0; i < 4; ++i) {
        size |= static_cast<std::size_t>(header.descriptionSize[i]) << (8 * i);
    }
    return size;
}

// Takes the header of a blob; false when it cannot be one that this version made.
bool ReadHeader(const DATA_BLOB& blob, BlobHeader& header) {
    if (blob.pbData == nullptr || blob.cbData < kOverhead) return false;
    std::memcpy(&header, blob.pbData, sizeof header);
    const std::size_t descriptionSize = DescriptionSize(header);
    return std::equal(std::begin(kMagic), std::end(kMagic), header.magic) &&
           header.version == kVersion &&
           header.scope <= static_cast<BYTE>(ProtectionScope::kUser) &&
           descriptionSize % sizeof(WCHAR) == 0 && descriptionSize <= blob.cbData - kOverhead;
}

bool DeriveBlobKey(const ProtectionKey& scopeKey, const DATA_BLOB* entropy, BlobHeader& header,
                   SecretKey<32>& key) {
    const std::size_t entropySize = entropy == nullptr ? 0 : entropy->cbData;
    // Room for all at once: a vector that grew would leave the key behind.
    std::vector<BYTE> input;
    input.reserve(scopeKey.size() + entropySize);
    input.assign(scopeKey.begin(), scopeKey.end());
    if (entropySize > 0) input.insert(input.end(), entropy->pbData, entropy->pbData + entropySize);

    char digest[] = "SHA256";
    std::string_view purpose(kKeyPurpose);
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, input.data(), input.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, header.salt, sizeof header.salt),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, const_cast<char*>(purpose.data()),
                                          purpose.size()),
        OSSL_PARAM_construct_end()};
    const KdfPointer kdf(EVP_KDF_fetch(CryptoContext(), "HKDF", nullptr));
    const KdfContextPointer context(kdf ? EVP_KDF_CTX_new(kdf.get()) : nullptr);
    const bool derived =
        context && EVP_KDF_derive(context.get(), key.data(), key.size(), parameters) == 1;
    OPENSSL_cleanse(input.data(), input.size());
    return derived;
}

// One blob's authenticated cipher; the header is authenticated with the content.
class BlobCipher {
  public:
    enum Direction { kDecrypt = 0, kEncrypt = 1 };

    BlobCipher(Direction direction, const SecretKey<32>& key, const BlobHeader& header)
        : context_(EVP_CIPHER_CTX_new()) {
        const CipherPointer cipher(EVP_CIPHER_fetch(CryptoContext(), "AES-256-GCM", nullptr));
        ok_ = cipher && context_ &&
              EVP_CipherInit_ex2(context_.get(), cipher.get(), key.data(), header.nonce, direction,
                                 nullptr) == 1;
        BYTE bytes[sizeof header];
        std::memcpy(bytes, &header, sizeof header);
        Update(nullptr, bytes, sizeof bytes);
    }

    void Transform(BYTE* output, const BYTE* input, std::size_t size) {
        constexpr std::size_t kPiece = std::size_t{1} << 26;  // the cipher counts in int
        for (std::size_t done = 0; done < size; done += kPiece) {
            Update(output + done, input + done, std::min(kPiece, size - done));
        }
    }

    // The end of an encryption: stores the tag.
    bool Seal(BYTE* tag) {
        Finish();
        return ok_ &&
               EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_GET_TAG, int{kTagSize}, tag) == 1;
    }

    // The end of a decryption: true when nothing was changed since the encryption.
    bool Verify(const BYTE* tag) {
        ok_ = ok_ && EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_TAG, int{kTagSize},
                                         const_cast<BYTE*>(tag)) == 1;
        Finish();
        return ok_;
    }

  private:
    void Update(BYTE* output, const BYTE* input, std::size_t size) {
        int written = 0;
        ok_ = ok_ && EVP_CipherUpdate(context_.get(), output, &written, input,
                                      static_cast<int>(size)) == 1;
    }

    void Finish() {
        BYTE none[1];
        int written = 0;
        ok_ = ok_ && EVP_CipherFinal_ex(context_.get(), none, &written) == 1;
    }

    CipherContextPointer context_;
    bool ok_ = false;
};

// Memory for the caller, wiped and freed unless it is handed out.
class LocalMemory {
  public:
    explicit LocalMemory(std::size_t size)
        : bytes_(static_cast<BYTE*>(LocalAlloc(LMEM_FIXED, size))), size_(size) {}
    LocalMemory(const LocalMemory&) = delete;
    LocalMemory& operator=(const LocalMemory&) = delete;
    ~LocalMemory() {
        if (bytes_ == nullptr) return;
        OPENSSL_cleanse(bytes_, size_);
        LocalFree(bytes_);
    }
    BYTE* get() const { return bytes_; }
    BYTE* release() {
        BYTE* const bytes = bytes_;
        bytes_ = nullptr;
        return bytes;
    }

  private:
    BYTE* bytes_;
    std::size_t size_;
};

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

bool Protect(const DATA_BLOB& in, std::u16string_view description, const DATA_BLOB* entropy,
             ProtectionScope scope, DATA_BLOB& out) {
    const std::size_t descriptionSize = description.size() * sizeof(WCHAR);
    const std::size_t size = kOverhead + descriptionSize + in.cbData;
    if (size > std::numeric_limits<DWORD>::max()) return Fail(ERROR_INVALID_PARAMETER);

    ProtectionKey scopeKey;
    if (!LoadProtectionKey(scope, MissingKey::kMake, scopeKey)) return false;
    BlobHeader header = NewHeader(scope, descriptionSize);
    SecretKey<32> key;
    if (!DeriveBlobKey(scopeKey, entropy, header, key)) return Fail(ERROR_GEN_FAILURE);
    LocalMemory blob(size);
    if (blob.get() == nullptr) return Fail(ERROR_NOT_ENOUGH_MEMORY);

    BYTE* const content = blob.get() + sizeof header;
    std::memcpy(blob.get(), &header, sizeof header);
    BlobCipher cipher(BlobCipher::kEncrypt, key, header);
    cipher.Transform(content, reinterpret_cast<const BYTE*>(description.data()), descriptionSize);
    cipher.Transform(content + descriptionSize, in.pbData, in.cbData);
    if (!cipher.Seal(content + descriptionSize + in.cbData)) return Fail(ERROR_GEN_FAILURE);
    out = {static_cast<DWORD>(size), blob.release()};
    return true;
}

bool Unprotect(const DATA_BLOB& in, LPWSTR* descriptionOut, const DATA_BLOB* entropy,
               DATA_BLOB& out) {
    BlobHeader header{};
    if (!ReadHeader(in, header)) return Fail(ERROR_INVALID_DATA);
    ProtectionKey scopeKey;
    const auto scope = static_cast<ProtectionScope>(header.scope);
    if (!LoadProtectionKey(scope, MissingKey::kFail, scopeKey)) {
        // Without the key that made it, a blob is one of another machine or account.
        return Fail(GetLastError() == ERROR_FILE_NOT_FOUND ? ERROR_INVALID_DATA : GetLastError());
    }
    SecretKey<32> key;
    if (!DeriveBlobKey(scopeKey, entropy, header, key)) return Fail(ERROR_GEN_FAILURE);
    const std::size_t descriptionSize = DescriptionSize(header);
    const std::size_t size = in.cbData - kOverhead - descriptionSize;
    LocalMemory description(descriptionSize + sizeof(WCHAR));
    LocalMemory plain(size);
    if (description.get() == nullptr || plain.get() == nullptr) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }

    const BYTE* const content = in.pbData + sizeof header;
    BlobCipher cipher(BlobCipher::kDecrypt, key, header);
    cipher.Transform(description.get(), content, descriptionSize);
    cipher.Transform(plain.get(), content + descriptionSize, size);
    if (!cipher.Verify(content + descriptionSize + size)) return Fail(ERROR_INVALID_DATA);
    std::memset(description.get() + descriptionSize, 0, sizeof(WCHAR));
    if (descriptionOut != nullptr)
        *descriptionOut = reinterpret_cast<LPWSTR>(description.release());
    out = {static_cast<DWORD>(size), plain.release()};
    return true;
}

}  // namespace
}  // namespace platform

extern "C" {

BOOL WINAPI CryptProtectData(DATA_BLOB* pDataIn, LPCWSTR szDataDescr, DATA_BLOB* pOptionalEntropy,
                             PVOID pvReserved, CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct,
                             DWORD dwFlags, DATA_BLOB* pDataOut) {
    if (!platform::CheckArguments(pDataIn, pOptionalEntropy, pvReserved, pPromptStruct, dwFlags,
                                  pDataOut)) {
        return FALSE;
    }
    const auto scope = (dwFlags & CRYPTPROTECT_LOCAL_MACHINE) != 0
                           ? platform::ProtectionScope::kMachine
                           : platform::ProtectionScope::kUser;
    const std::u16string_view description = szDataDescr == nullptr ? u"" : szDataDescr;
    return platform::Protect(*pDataIn, description, pOptionalEntropy, scope, *pDataOut) ? TRUE
                                                                                        : FALSE;
}

BOOL WINAPI CryptUnprotectData(DATA_BLOB* pDataIn, LPWSTR* ppszDataDescr,
                               DATA_BLOB* pOptionalEntropy, PVOID pvReserved,
                               CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct, DWORD dwFlags,
                               DATA_BLOB* pDataOut) {
    if (!platform::CheckArguments(pDataIn, pOptionalEntropy, pvReserved, pPromptStruct, dwFlags,
                                  pDataOut)) {
        return FALSE;
    }
    return platform::Unprotect(*pDataIn, ppszDataDescr, pOptionalEntropy, *pDataOut) ? TRUE : FALSE;
}
}
