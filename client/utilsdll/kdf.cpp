#include "client/utilsdll/kdf.h"

#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

#include "client/utilsdll/crypto_context.h"
#include "common/openssl_owner.h"

namespace utilsdll {
namespace {

// The parameter only reads the bytes, although its type says otherwise.
OSSL_PARAM ByteParameter(const char* name, Bytes bytes) {
    static BYTE none = 0;
    void* data = bytes.empty() ? &none : const_cast<BYTE*>(bytes.data());
    return OSSL_PARAM_construct_octet_string(name, data, bytes.size());
}

bool Derive(const char* name, const OSSL_PARAM* parameters, std::size_t size,
            SecureBytes& derived) {
    const auto library = CryptoContext();
    if (!library) return false;
    const UniqueOpenSsl<EVP_KDF, EVP_KDF_free> kdf(EVP_KDF_fetch(*library, name, nullptr));
    const UniqueOpenSsl<EVP_KDF_CTX, EVP_KDF_CTX_free> context(EVP_KDF_CTX_new(kdf.get()));
    SecureBytes bytes(size);
    if (!context || EVP_KDF_derive(context.get(), bytes.data(), size, parameters) != 1) {
        return false;
    }
    derived.swap(bytes);
    return true;
}

}  // namespace

bool Hkdf(Bytes key, Bytes salt, Bytes info, std::size_t size, SecureBytes& derived) {
    char digest[] = "SHA512";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        ByteParameter(OSSL_KDF_PARAM_KEY, key),
        ByteParameter(OSSL_KDF_PARAM_SALT, salt),
        ByteParameter(OSSL_KDF_PARAM_INFO, info),
        OSSL_PARAM_construct_end(),
    };
    return Derive("HKDF", parameters, size, derived);
}

bool Pbkdf2(Bytes passPhrase, Bytes salt, int rounds, std::size_t size, SecureBytes& derived) {
    char digest[] = "SHA512";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        ByteParameter(OSSL_KDF_PARAM_PASSWORD, passPhrase),
        ByteParameter(OSSL_KDF_PARAM_SALT, salt),
        OSSL_PARAM_construct_int(OSSL_KDF_PARAM_ITER, &rounds),
        OSSL_PARAM_construct_end(),
    };
    return Derive("PBKDF2", parameters, size, derived);
}

std::vector<BYTE> Labelled(std::string_view label, Bytes data) {
    std::vector<BYTE> bytes(label.begin(), label.end());
    bytes.push_back(0);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
}

}  // namespace utilsdll
