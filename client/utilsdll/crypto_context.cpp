#include "client/utilsdll/crypto_context.h"

#include <openssl/crypto.h>
#include <openssl/provider.h>

#include <cstdlib>
#include <string>

#include "client/include/utilsdll.h"
#include "client/utilsdll/own_folder.h"
#include "common/path.h"

namespace utilsdll {
namespace {

// The variable by which the module's configuration knows its folder, set while this lives.
class ModulesVariable {
  public:
    explicit ModulesVariable(const std::string& folder) {
        const char* const before = std::getenv(kName);
        if (before != nullptr) before_ = before;
        _putenv_s(kName, folder.c_str());
    }
    ModulesVariable(const ModulesVariable&) = delete;
    ModulesVariable& operator=(const ModulesVariable&) = delete;
    ~ModulesVariable() { _putenv_s(kName, before_.c_str()); }

  private:
    static constexpr const char* kName = "OPENSSL_MODULES";
    std::string before_;
};

// OpenSSL takes paths in the ANSI code page.
OSSL_LIB_CTX* LoadFipsModule() {
    const WString folder = OwnFolder();
    if (folder.empty()) return nullptr;
    const ModulesVariable modules(WideToAnsi(folder));
    OSSL_LIB_CTX* const context = OSSL_LIB_CTX_new();
    if (context == nullptr) return nullptr;
    const std::string configuration = WideToAnsi(JoinPath(folder, TEXT("fipsmodule.cnf")));
    const std::string module = WideToAnsi(JoinPath(folder, TEXT("fips")));
    if (OSSL_PROVIDER_set_default_search_path(context, WideToAnsi(folder).c_str()) == 1 &&
        OSSL_LIB_CTX_load_config(context, configuration.c_str()) == 1 &&
        OSSL_PROVIDER_load(context, module.c_str()) != nullptr) {
        return context;
    }
    OSSL_LIB_CTX_free(context);
    return nullptr;
}

std::optional<OSSL_LIB_CTX*> MakeContext() {
    if (cfg_is_fips_mode_enabled() == 0) return nullptr;
    // It lives as long as the process: OpenSSL tidies up before this library's own objects go.
    OSSL_LIB_CTX* const context = LoadFipsModule();
    if (context == nullptr) return std::nullopt;
    return context;
}

}  // namespace

std::optional<OSSL_LIB_CTX*> CryptoContext() {
    static const std::optional<OSSL_LIB_CTX*> context = MakeContext();
    return context;
}

}  // namespace utilsdll
