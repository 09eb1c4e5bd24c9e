#include "config/configuration_change.h"

#include <product_registry.h>
#include <utilsdll.h>

#include <exception>

#include "common/format.h"
#include "common/handles.h"
#include "cryptd/SNCryptdAPI.h"

namespace {

constexpr const WCHAR* kScheduler = TEXT("SA_Scheduler");
constexpr const WCHAR* kProgram = TEXT("SNConfig.exe");
constexpr const WCHAR* kBeginFailed =
    TEXT("FIPS Error: %s failed to set modifying configuration state falg.\n");
constexpr const WCHAR* kCommitFailed =
    TEXT("FIPS Error: %s failed to update configuration state.\n");
constexpr const WCHAR* kInstallerKey = TEXT(SENTREL_PRODUCT_KEY "\\SA_CONFIGD");
constexpr const WCHAR* kInstallerState = TEXT("state");

// What has no memory to be told is not told.
void EnterErrorMode(const WCHAR* format) noexcept try {
    CryptdFipsEnterErrorMode(FormatWide(format, kProgram).c_str());
} catch (const std::exception&) {
    return;
}

// The verdict, where it is wanted, is the service's answer; both are negative for a refusal.
bool Send(DWORD operation, int* verdict) noexcept try {
    return CryptdConfigurationRequest(operation, 0, nullptr, 0, verdict, nullptr, nullptr, 0) >=
               0 &&
           (verdict == nullptr || *verdict >= 0);
} catch (const std::exception&) {
    return false;  // memory ran out
}

}  // namespace

bool IsChangeAnnounced() {
    return cfg_is_fips_mode_enabled() != 0 && service_is_running(kScheduler);
}

ConfigurationChange::ConfigurationChange() : hasBegun_(Send(kCryptdBeginChange, nullptr)) {
    if (!hasBegun_) EnterErrorMode(kBeginFailed);
}

ConfigurationChange::~ConfigurationChange() {
    int verdict = 0;
    if (!Send(kCryptdCommitChange, &verdict)) EnterErrorMode(kCommitFailed);
}

void ForgetInstallerState() {
    if (cfg_is_fips_mode_enabled() == 0 || service_is_running(kScheduler)) return;
    const UniqueRegKey key(reg_openkeyW(HKEY_LOCAL_MACHINE, kInstallerKey));
    if (key) reg_removevalueW(key.get(), kInstallerState);
}
