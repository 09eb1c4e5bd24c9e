// What is prepared before the program's entry point runs.
#include "common/process_guard.h"
#include "cryptd/crypto_log.h"
#include "cryptd/providers.h"
#include "protect/built_in_secrets.h"
#include "protect/data_protect.h"

namespace {

// In this order: what a crash may tell, which links are followed and what OpenSSL may read, then
// the built-in secrets, the crypto logs, the file mask, OpenSSL and the key material.
struct Startup {
    Startup() {
        KeepMemoryOutOfCrashReports();
        RefuseLinksOfOrdinaryAccounts();
        CryptdShutOutConfiguration();
        DecodeBuiltInSecrets();
        CryptdLogInit();
        DataProtectInit();
    }
};
const Startup startup;

}  // namespace
