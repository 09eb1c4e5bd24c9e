// What is prepared before the program's entry point runs.
#include "protect/built_in_secrets.h"
#include "protect/data_protect.h"

namespace {

// In this order: the built-in secrets, then the file mask and the key material.
struct Startup {
    Startup() {
        DecodeBuiltInSecrets();
        DataProtectInit();
    }
};
const Startup startup;

}  // namespace
