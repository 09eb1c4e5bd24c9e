#include "cryptd/rng_provider.h"

#include <openssl/core_dispatch.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <climits>
#include <cstdint>
#include <utility>

#include "cryptd/provider_handles.h"
#include "cryptd/random_source.h"

namespace {

constexpr const char* kProviderName = "snt_rng";
constexpr unsigned kStrength = 500;
constexpr std::uint64_t kMaxRequest = INT_MAX;

// --- The generator ------------------------------------------------------------------------------

// EVP_RAND_STATE_...: 0 before it is instantiated, 1 from then on.
using State = std::int32_t;

void* NewContext(void* /*provider*/, void* /*parent*/, const OSSL_DISPATCH* /*parentCalls*/) {
    return OPENSSL_zalloc(sizeof(State));
}

void FreeContext(void* context) {
    OPENSSL_free(context);
}

int Instantiate(void* context, unsigned /*strength*/, int /*predictionResistance*/,
                const unsigned char* /*personalization*/, std::size_t /*size*/,
                const OSSL_PARAM* /*parameters*/) {
    *static_cast<State*>(context) = EVP_RAND_STATE_READY;
    return 1;
}

int Uninstantiate(void* context) {
    *static_cast<State*>(context) = EVP_RAND_STATE_UNINITIALISED;
    return 1;
}

int Generate(void* /*context*/, unsigned char* output, std::size_t size, unsigned /*strength*/,
             int /*predictionResistance*/, const unsigned char* /*additional*/,
             std::size_t /*additionalSize*/) {
    return size <= kMaxRequest && FillFromRandomSource(output, static_cast<int>(size)) ? 1 : 0;
}

// A source that holds no state needs no lock.
int EnableLocking(void* /*context*/) {
    return 1;
}

const OSSL_PARAM* GettableContextParameters(void* /*context*/, void* /*provider*/) {
    static const OSSL_PARAM kParameters[] = {
        OSSL_PARAM_int(OSSL_RAND_PARAM_STATE, nullptr),
        OSSL_PARAM_uint(OSSL_RAND_PARAM_STRENGTH, nullptr),
        OSSL_PARAM_uint64(OSSL_RAND_PARAM_MAX_REQUEST, nullptr),
        OSSL_PARAM_END,
    };
    return kParameters;
}

int GetContextParameters(void* context, OSSL_PARAM parameters[]) {
    const auto locate = [parameters](const char* name) {
        return OSSL_PARAM_locate(parameters, name);
    };
    OSSL_PARAM* const state = locate(OSSL_RAND_PARAM_STATE);
    OSSL_PARAM* const strength = locate(OSSL_RAND_PARAM_STRENGTH);
    OSSL_PARAM* const longest = locate(OSSL_RAND_PARAM_MAX_REQUEST);
    const bool set =
        (state == nullptr || OSSL_PARAM_set_int32(state, *static_cast<State*>(context)) == 1) &&
        (strength == nullptr || OSSL_PARAM_set_uint(strength, kStrength) == 1) &&
        (longest == nullptr || OSSL_PARAM_set_uint64(longest, kMaxRequest) == 1);
    return set ? 1 : 0;
}

// --- The provider -------------------------------------------------------------------------------

// OpenSSL's table of functions holds them all as of one type.
template <typename Function>
OSSL_DISPATCH Entry(int number, Function* function) {
    return {number, reinterpret_cast<void (*)()>(function)};
}

const OSSL_DISPATCH kGenerator[] = {
    Entry(OSSL_FUNC_RAND_NEWCTX, NewContext),
    Entry(OSSL_FUNC_RAND_FREECTX, FreeContext),
    Entry(OSSL_FUNC_RAND_INSTANTIATE, Instantiate),
    Entry(OSSL_FUNC_RAND_UNINSTANTIATE, Uninstantiate),
    Entry(OSSL_FUNC_RAND_GENERATE, Generate),
    Entry(OSSL_FUNC_RAND_ENABLE_LOCKING, EnableLocking),
    Entry(OSSL_FUNC_RAND_GETTABLE_CTX_PARAMS, GettableContextParameters),
    Entry(OSSL_FUNC_RAND_GET_CTX_PARAMS, GetContextParameters),
    {0, nullptr},
};

const OSSL_ALGORITHM kAlgorithms[] = {
    {kProviderName, "provider=vos_rng,fips=yes", kGenerator, nullptr},
    {nullptr, nullptr, nullptr, nullptr},
};

const OSSL_ALGORITHM* QueryOperation(void* /*provider*/, int operation, int* mayNotCache) {
    *mayNotCache = 0;
    return operation == OSSL_OP_RAND ? kAlgorithms : nullptr;
}

const OSSL_DISPATCH kProvider[] = {
    Entry(OSSL_FUNC_PROVIDER_QUERY_OPERATION, QueryOperation),
    {0, nullptr},
};

int Initialise(const OSSL_CORE_HANDLE* /*core*/, const OSSL_DISPATCH* /*coreCalls*/,
               const OSSL_DISPATCH** provider, void** providerContext) {
    *provider = kProvider;
    *providerContext = nullptr;
    return 1;
}

}  // namespace

bool CryptdRegisterRngProvider(OSSL_LIB_CTX* context) {
    // 1. Once is enough.
    if (providerHandles.random != nullptr) return true;
    // 2-3. Known to the context, and loaded beside the providers that it uses by default.
    if (OSSL_PROVIDER_add_builtin(context, kProviderName, Initialise) != 1) return false;
    providerHandles.random = OSSL_PROVIDER_try_load(context, kProviderName, 1);
    if (providerHandles.random == nullptr) return false;
    providerHandles.randomContext = context;
    // 4. The generator of whatever the context draws.
    RAND_set_DRBG_type(context, kProviderName, nullptr, nullptr, nullptr);
    return true;
}

void CryptdUnregisterRngProvider() {
    OSSL_PROVIDER* const provider = std::exchange(providerHandles.random, nullptr);
    if (provider != nullptr) OSSL_PROVIDER_unload(provider);
}
