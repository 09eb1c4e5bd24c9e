// Owner of an object of the cryptographic library: given back with its own function.
#pragma once

#include <memory>

template <auto free>
struct OpenSslFree {
    template <typename Type>
    void operator()(Type* object) const {
        free(object);
    }
};

// For example UniqueOpenSsl<EVP_KDF, EVP_KDF_free>; null when the library could not make it.
template <typename Type, auto free>
using UniqueOpenSsl = std::unique_ptr<Type, OpenSslFree<free>>;
