// OpenSSL 3 keeps engines, but calls them deprecated.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "cryptd/rng_engine.h"

#include <openssl/engine.h>
#include <openssl/rand.h>

#include "common/openssl_owner.h"
#include "cryptd/random_source.h"

namespace {

constexpr const char* kEngineName = "SNT_FIPS_RNG_ENGINE";

int IgnoreSeed(const void* /*data*/, int /*size*/) {
    return 1;
}

int FillBytes(unsigned char* buffer, int size) {
    return FillFromRandomSource(buffer, size) ? 1 : 0;
}

void CleanUpNothing() {}

int IgnoreEntropy(const void* /*data*/, int /*size*/, double /*entropy*/) {
    return 1;
}

int AlwaysReady() {
    return 1;
}

// In OpenSSL's order: seed, bytes, cleanup, add, pseudorand, status.
constexpr RAND_METHOD kRandomMethod = {IgnoreSeed,    FillBytes, CleanUpNothing,
                                       IgnoreEntropy, FillBytes, AlwaysReady};

}  // namespace

bool InstallRngEngine() {
    // As the default, it is held by OpenSSL.
    const UniqueOpenSsl<ENGINE, ENGINE_free> engine(ENGINE_new());
    if (!engine || ENGINE_set_id(engine.get(), kEngineName) != 1 ||
        ENGINE_set_name(engine.get(), kEngineName) != 1 ||
        ENGINE_set_RAND(engine.get(), &kRandomMethod) != 1 ||
        ENGINE_set_default_RAND(engine.get()) != 1) {
        return false;
    }
    // Where random bytes have been drawn before, the method of then is remembered: forget it.
    return RAND_set_rand_method(nullptr) == 1;
}
