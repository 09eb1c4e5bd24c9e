// Where the client's own parts take their algorithms from.
#pragma once

#include <openssl/types.h>

#include <optional>

namespace utilsdll {

// OpenSSL's library context for this process: its default one (null) or, when the client was in
// FIPS mode at the first call, one that holds the FIPS module alone. Module and configuration are
// those in the folder of the library or program that this is a part of, whatever the current folder
// is. Nothing when the module cannot be loaded: no algorithm may be used then.
std::optional<OSSL_LIB_CTX*> CryptoContext();

}  // namespace utilsdll
