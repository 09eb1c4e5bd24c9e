// Cryptography for the layer's own use, apart from whatever the program does with OpenSSL: another
// default provider, random generator or FIPS setting of the program does not reach in here.
#pragma once

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <cstddef>
#include <memory>

namespace platform {

// The layer's own OpenSSL library context, with the default provider.
OSSL_LIB_CTX* CryptoContext();

// Fills memory with random bytes of the kernel; false when it has none to give.
bool DrawRandom(void* memory, std::size_t size);
// The same where there is no going on without.
void FillRandom(void* memory, std::size_t size);

// A key of so many bytes, wiped when it goes.
template <std::size_t kSize>
struct SecretKey : std::array<unsigned char, kSize> {
    SecretKey() = default;
    SecretKey(const SecretKey&) = default;
    SecretKey& operator=(const SecretKey&) = default;
    ~SecretKey() { OPENSSL_cleanse(this->data(), kSize); }
};

template <auto kFree>
struct OpenSslDeleter {
    template <typename Type>
    void operator()(Type* object) const {
        kFree(object);
    }
};
using CipherPointer = std::unique_ptr<EVP_CIPHER, OpenSslDeleter<EVP_CIPHER_free>>;
using CipherContextPointer = std::unique_ptr<EVP_CIPHER_CTX, OpenSslDeleter<EVP_CIPHER_CTX_free>>;

}  // namespace platform
