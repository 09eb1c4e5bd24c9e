// What is prepared before the program's entry point runs.
#include "cryptd/crypto_log.h"
#include "protect/built_in_secrets.h"
#include "protect/data_protect.h"

namespace {

// In this order: the built-in secrets, the crypto logs, then the file mask, OpenSSL and the key
// material.
struct Startup {
    Startup() {
        DecodeBuiltInSecrets();
        CryptdLogInit();
        DataProtectInit();
    }
};
const Startup startup;

}  // namespace
