// What the process holds of OpenSSL's providers.
#pragma once

#include <openssl/provider.h>

struct ProviderHandles {
    OSSL_LIB_CTX* context = nullptr;  // made for the FIPS provider
    OSSL_PROVIDER* fips = nullptr;    // in that context
    OSSL_PROVIDER* base = nullptr;    // in the default context, as is the next
    OSSL_PROVIDER* legacy = nullptr;
    OSSL_PROVIDER* random = nullptr;        // "snt_rng"...
    OSSL_LIB_CTX* randomContext = nullptr;  // ... and the context that it was registered with
    bool engineInstalled = false;           // the random engine is OpenSSL's default
};

inline constinit ProviderHandles providerHandles;
