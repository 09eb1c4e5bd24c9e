#include "cryptd/providers.h"

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <sncryptdll.h>
#include <utilsdll.h>
#include <windows.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "common/console_text.h"
#include "common/format.h"
#include "common/openssl_owner.h"
#include "common/path.h"
#include "cryptd/provider_handles.h"
#include "cryptd/rng_engine.h"
#include "cryptd/rng_provider.h"

namespace {

constexpr const WCHAR* kConfiguration = TEXT("fipsmodule.cnf");

// Empty when it cannot be learnt.
WString CurrentFolder() {
    WString folder(GetCurrentDirectoryW(0, nullptr), WCHAR{0});
    const auto capacity = static_cast<DWORD>(folder.size());
    const DWORD length = GetCurrentDirectoryW(capacity, folder.data());
    folder.resize(length < capacity ? length : 0);
    return folder;
}

// A name in a folder, as 8-bit file functions take it: in the ANSI code page, at which the process
// leaves them.
std::string FileIn(const WString& folder, WStringView name) {
    return WideToAnsi(JoinPath(folder, name));
}

// The errors that OpenSSL has noted on this thread, one in a line, with paths as it was given them.
// They are noted no longer.
WString OpenSslErrors() {
    const UniqueOpenSsl<BIO, BIO_free> memory(BIO_new(BIO_s_mem()));
    if (!memory) return {};
    ERR_print_errors(memory.get());
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return AnsiToWide({text, static_cast<std::size_t>(size)});
}

void UnloadFipsProvider() {
    OSSL_PROVIDER_unload(std::exchange(providerHandles.fips, nullptr));
}

// A new context for the FIPS provider; an earlier one goes, with the providers in it.
OSSL_LIB_CTX* NewContext() {
    UnloadFipsProvider();
    if (providerHandles.context != nullptr &&
        providerHandles.randomContext == providerHandles.context) {
        CryptdUnregisterRngProvider();
    }
    OSSL_LIB_CTX_free(std::exchange(providerHandles.context, OSSL_LIB_CTX_new()));
    return providerHandles.context;
}

// Loads a provider into the default context; what an earlier call loaded there goes. What the
// process draws, hashes and encrypts there is still done by OpenSSL's default provider, which any
// other way of loading would shut out.
bool LoadBesideDefaults(const char* name, OSSL_PROVIDER*& provider) {
    constexpr int kRetainFallbacks = 1;
    OSSL_PROVIDER_unload(
        std::exchange(provider, OSSL_PROVIDER_try_load(nullptr, name, kRetainFallbacks)));
    return provider != nullptr;
}

int LoadForFips(const WString& folder) {
    // 1. Where the configuration is, also for whoever asks OpenSSL later.
    const std::string configuration = FileIn(folder, kConfiguration);
    _putenv_s("OPENSSL_CONF", configuration.c_str());
    // 2-4. A context that finds its modules and their parameters in the folder.
    OSSL_LIB_CTX* const context = NewContext();
    if (context == nullptr) return -1;
    OSSL_PROVIDER_set_default_search_path(context, WideToAnsi(folder).c_str());
    OSSL_LIB_CTX_load_config(context, configuration.c_str());
    // 5-6. The FIPS provider, in that context.
    providerHandles.fips = OSSL_PROVIDER_load(context, FileIn(folder, TEXT("fips")).c_str());
    if (providerHandles.fips == nullptr) {
        WriteConsoleText(FormatWide(TEXT("%s\n"), OpenSslErrors().c_str()));
        WriteConsoleText(TEXT("Failed to load FIPS provider\n"));
        return 0;
    }
    // 7. The base provider, in the default context.
    if (!LoadBesideDefaults("base", providerHandles.base)) {
        UnloadFipsProvider();
        WriteConsoleText(TEXT("Failed to load base provider\n"));
        return 0;
    }
    // 8-9. The engine, once in the process.
    if (!providerHandles.engineInstalled) providerHandles.engineInstalled = InstallRngEngine();
    return providerHandles.engineInstalled ? 0 : -1;
}

int LoadForLegacy(const WString& folder) {
    if (OSSL_PROVIDER_set_default_search_path(nullptr, WideToAnsi(folder).c_str()) != 1) return -1;
    LoadBesideDefaults(FileIn(folder, TEXT("legacy")).c_str(), providerHandles.legacy);
    return 0;
}

}  // namespace

void CryptdShutOutConfiguration() {
    if (cfg_is_fips_mode_enabled() != 0 && SncFipsIsFipsModeEnabled() != 0) return;
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
}

int CryptdLoadProviders() {
    const WString folder = CurrentFolder();
    if (folder.empty()) return -1;  // bare names would be looked for elsewhere
    // 1-2. OpenSSL's modules and the library itself are those of the folder.
    _putenv_s("OPENSSL_MODULES", WideToAnsi(folder).c_str());
    LoadLibraryA(FileIn(folder, TEXT("libcrypto-3-x64.dll")).c_str());
    // 3-4. What the mode asks for.
    return SncFipsIsFipsModeEnabled() != 0 ? LoadForFips(folder) : LoadForLegacy(folder);
}

int CryptdUnloadProviders() {
    providerHandles.base = nullptr;
    providerHandles.fips = nullptr;
    providerHandles.random = nullptr;
    OSSL_LIB_CTX_free(std::exchange(providerHandles.context, nullptr));
    return 0;
}
