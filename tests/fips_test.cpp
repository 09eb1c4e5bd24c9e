// OpenSSL as the client sets it up, with the real modules; and what goes with it.
#define OPENSSL_SUPPRESS_DEPRECATED  // the engine is looked at

#include <openssl/engine.h>
#include <openssl/rand.h>
#include <sncryptdll.h>
#include <utilsdll.h>

#include <array>
#include <cstring>

#include "common/handles.h"
#include "cryptd/crypto_log.h"
#include "cryptd/drbg_state.h"
#include "cryptd/provider_handles.h"
#include "cryptd/providers.h"
#include "cryptd/rng_provider.h"
#include "tests/support/fake_crypto_service.h"
#include "tests/support/machine.h"
#include "tests/support/machine_port.h"
#include "tests/support/registry.h"

namespace fs = std::filesystem;

// The base provider is a part of OpenSSL, which nothing can take away: in these tests it is missing
// when it shall be. The linker passes the product's calls through here.
static bool baseIsMissing = false;
extern "C" OSSL_PROVIDER* __real_OSSL_PROVIDER_try_load(OSSL_LIB_CTX*, const char*, int);
extern "C" OSSL_PROVIDER* __wrap_OSSL_PROVIDER_try_load(OSSL_LIB_CTX* context, const char* name,
                                                        int retainFallbacks) {
    if (baseIsMissing && std::strcmp(name, "base") == 0) return nullptr;
    return __real_OSSL_PROVIDER_try_load(context, name, retainFallbacks);
}

namespace {

// What a draw of 10 bytes gives; empty when it fails.
Bytes Draw(OSSL_LIB_CTX* context = nullptr) {
    Bytes bytes(10);
    return RAND_bytes_ex(context, bytes.data(), bytes.size(), 0) == 1 ? bytes : Bytes();
}

const Bytes kOfTheService(10, 0x5A);

void ExpectRandomBytes() {
    const Bytes bytes = Draw();
    EXPECT_EQ(bytes.size(), 10U);
    EXPECT_NE(bytes, Draw());
}

// OpenSSL's default engine for random bytes, which OpenSSL holds.
ENGINE* DefaultEngine() {
    ENGINE* const engine = ENGINE_get_default_RAND();
    ENGINE_finish(engine);
    return engine;
}

bool Offers(OSSL_LIB_CTX* context, const char* digest, const char* properties = nullptr) {
    EVP_MD* const found = EVP_MD_fetch(context, digest, properties);
    EVP_MD_free(found);
    return found != nullptr;
}

// A machine in FIPS mode, and a client's folder of its own to start in.
class FipsTest : public MachineTest {
  protected:
    FipsTest() {
        CryptdLogInit();
        EXPECT_TRUE(cfg_set_fips_mode(true));
        fs::create_directory(folder_);
        InstallModules(folder_);
        fs::current_path(folder_);
    }
    // Loads the providers and tells what was said about it.
    static std::string Load() {
        testing::internal::CaptureStdout();
        EXPECT_EQ(CryptdLoadProviders(), 0);
        return testing::internal::GetCapturedStdout();
    }
    // OpenSSL's own generator and algorithms serve the process.
    static void ExpectNoEngine() {
        EXPECT_EQ(DefaultEngine(), nullptr);
        ExpectRandomBytes();
        EXPECT_TRUE(Offers(nullptr, "SHA3-512"));
    }

    fs::path folder_ = ScratchFolder() / TEXT("Client's $folder \u00F6");
};

TEST_F(FipsTest, ModuleHasItsContextAndTheEngineServesTheProcess) {
    ExpectRandomBytes();  // of whoever served before
    EXPECT_EQ(Load(), "");
    EXPECT_NE(ReadVariable("OPENSSL_MODULES").find("Client's $folder"), std::string::npos);
    EXPECT_TRUE(ReadVariable("OPENSSL_CONF").ends_with("fipsmodule.cnf"));
    EXPECT_FALSE(Offers(providerHandles.context, "MD5"));
    EXPECT_FALSE(Offers(nullptr, "SHA3-512", "fips=yes"));
    EXPECT_TRUE(Offers(nullptr, "SHA3-512"));
    ENGINE* const engine = DefaultEngine();
    ASSERT_NE(engine, nullptr);
    EXPECT_STREQ(ENGINE_get_id(engine), "SNT_FIPS_RNG_ENGINE");
    EXPECT_STREQ(ENGINE_get_name(engine), "SNT_FIPS_RNG_ENGINE");
    EXPECT_TRUE(CryptdRegisterRngProvider(providerHandles.context));
    EXPECT_EQ(Load(), "");
    EXPECT_EQ(providerHandles.random, nullptr) << "its context has gone";
    EXPECT_EQ(DefaultEngine(), engine);
    EXPECT_TRUE(Offers(providerHandles.context, "SHA3-512", "fips=yes"));

    ExpectRandomBytes();
    EXPECT_EQ(RAND_bytes(nullptr, 10), 0);  // nobody can fill no buffer
    EXPECT_EQ(RAND_status(), 1);
    const FakeService service(3, Giving(kOfTheService[0]));
    EXPECT_EQ(Draw(), kOfTheService);
    Bytes bytes(10);
    EXPECT_EQ(RAND_pseudo_bytes(bytes.data(), 10), 1);
    EXPECT_EQ(bytes, kOfTheService);
    OSSL_PROVIDER_unload(providerHandles.fips);  // they are only forgotten by what follows
    OSSL_PROVIDER_unload(providerHandles.base);
    EXPECT_EQ(CryptdUnloadProviders(), 0);
    EXPECT_EQ(providerHandles.context, nullptr);
    EXPECT_EQ(Draw(), kOfTheService);
}

TEST_F(FipsTest, WithoutTheBaseProviderTheModuleGoesToo) {
    baseIsMissing = true;
    EXPECT_EQ(Load(), "Failed to load base provider\n");
    EXPECT_FALSE(Offers(providerHandles.context, "SHA3-512", "fips=yes"));
    ExpectNoEngine();
}

TEST_F(FipsTest, LegacyModuleWhereTheCryptoLibraryIsNotInFipsMode) {
    EXPECT_NE(SncFipsIsFipsModeEnabled(), 0);
    EXPECT_TRUE(cfg_set_fips_mode(false));
    EXPECT_EQ(SncFipsIsFipsModeEnabled(), 0);
    SetRaw(HKEY_LOCAL_MACHINE, TEXT("software\\Verdane\\Sentrel\\SA_STATE"), TEXT("fips_mode"),
           REG_DWORD, {1, 0, 0, 0});
    ASSERT_NE(cfg_is_fips_mode_enabled(), 0);

    EXPECT_EQ(Load(), "");
    EXPECT_TRUE(Offers(nullptr, "MD4"));
    EXPECT_EQ(providerHandles.context, nullptr);
    ExpectNoEngine();
}

TEST_F(FipsTest, DamageInTheFolderIsToldAndTheProcessGoesOn) {
    const fs::path module = folder_ / FileOfBuild("fips").filename();
    if (Role().empty()) {
        for (const char* damage : {"no module", "no configuration", "no library", "changed"}) {
            RunRole(damage);
        }
        return;
    }
    if (Role() == "no module") fs::remove(module);
    if (Role() == "no configuration") fs::remove(folder_ / "fipsmodule.cnf");
    if (Role() == "no library") WriteWholeFile(module, "none");
    if (Role() == "changed") WriteWholeFile(module, ReadWholeFile(FileOfBuild("fips")) + '\n');
    const std::string said = Load();
    EXPECT_NE(said.find("error:"), std::string::npos);
    EXPECT_NE(said.find((folder_ / "fips").string()), std::string::npos) << said;
    EXPECT_TRUE(said.ends_with("\n\nFailed to load FIPS provider\n")) << said;
    ExpectNoEngine();
}

// --- The random provider ------------------------------------------------------------------------

TEST_F(MachineTest, RandomProviderServesItsContext) {
    OSSL_LIB_CTX* const context = OSSL_LIB_CTX_new();
    ASSERT_TRUE(CryptdRegisterRngProvider(context));
    EXPECT_TRUE(CryptdRegisterRngProvider(context));
    EVP_RAND* const method = EVP_RAND_fetch(context, "snt_rng", "provider=vos_rng,fips=yes");
    EVP_RAND_CTX* const generator = EVP_RAND_CTX_new(method, nullptr);
    ASSERT_NE(generator, nullptr);
    EXPECT_EQ(EVP_RAND_get_state(generator), EVP_RAND_STATE_UNINITIALISED);
    EXPECT_EQ(EVP_RAND_enable_locking(generator), 1);
    EXPECT_EQ(EVP_RAND_instantiate(generator, 0, 0, nullptr, 0, nullptr), 1);
    EXPECT_EQ(EVP_RAND_get_state(generator), EVP_RAND_STATE_READY);
    EXPECT_EQ(EVP_RAND_get_strength(generator), 500U);
    std::uint64_t longest = 0;
    OSSL_PARAM wanted[] = {OSSL_PARAM_construct_uint64("max_request", &longest), OSSL_PARAM_END};
    EXPECT_EQ(EVP_RAND_CTX_get_params(generator, wanted), 1);
    EXPECT_EQ(longest, 2'147'483'647U);
    EXPECT_EQ(EVP_RAND_generate(generator, nullptr, 48, 0, 0, nullptr, 0), 0);
    {
        const FakeService service(2, Giving(kOfTheService[0]));
        Bytes bytes(48);
        EXPECT_EQ(EVP_RAND_generate(generator, bytes.data(), 48, 0, 0, nullptr, 0), 1);
        EXPECT_EQ(bytes, Bytes(48, kOfTheService[0]));
        EXPECT_EQ(Draw(context), kOfTheService);  // the context's own generator
    }
    EXPECT_EQ(EVP_RAND_uninstantiate(generator), 1);
    EXPECT_EQ(EVP_RAND_get_state(generator), EVP_RAND_STATE_UNINITIALISED);
    EVP_RAND_CTX_free(generator);
    EVP_RAND_free(method);
    EXPECT_TRUE(Offers(context, "SHA3-512"));
    CryptdUnregisterRngProvider();
    EXPECT_EQ(EVP_RAND_fetch(context, "snt_rng", nullptr), nullptr);
    OSSL_LIB_CTX_free(context);
}

// --- The rest -----------------------------------------------------------------------------------

TEST_F(MachineTest, GeneratorStateIsKept) {
    std::array<BYTE, kDrbgStateSize> state;
    state.fill(7);
    EXPECT_EQ(CryptdWriteDrbgState(state.data()), -1);
    EXPECT_EQ(CryptdReadDrbgState(state.data()), -1);
    SetRaw(HKEY_LOCAL_MACHINE, kCryptdStateKey, TEXT("other"), TEXT(""));  // makes the key
    EXPECT_EQ(CryptdReadDrbgState(state.data()), -1);
    EXPECT_EQ(CryptdWriteDrbgState(state.data()), 0);
    std::array<BYTE, kDrbgStateSize> read = {};
    EXPECT_EQ(CryptdReadDrbgState(read.data()), 0);
    EXPECT_EQ(read, state);
    SetRaw(HKEY_LOCAL_MACHINE, kCryptdStateKey, TEXT("DrbgState"), TEXT("abc"));
    EXPECT_EQ(CryptdReadDrbgState(read.data()), -2);
    SetRaw(HKEY_LOCAL_MACHINE, kCryptdStateKey, TEXT("DrbgState"), REG_BINARY,
           Bytes(kDrbgStateSize + 1));
    EXPECT_EQ(CryptdReadDrbgState(read.data()), -1);
}

}  // namespace
