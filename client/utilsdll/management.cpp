// How the client is managed, its services, and what the process's user may do.
#include <shlobj.h>

#include <algorithm>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "client/utilsdll/client_state.h"
#include "common/handles.h"
#include "common/security.h"
#include "common/text.h"

namespace {

constexpr const WCHAR* kScheduler = TEXT("SA_Scheduler");
constexpr const WCHAR* kConfigurationChanged = TEXT("Global\\SN_CONFIG_CHANGED");

enum AccountType { kUserAccount = 1, kSystemAccount = 2 };
enum UserType { kGuest = 0, kStandardUser = 1, kAdministrator = 2 };

}  // namespace

extern "C" {

// --- Management ---------------------------------------------------------------------------------

int cfg_is_managed_by_cms() {
    return Guarded(true, [] { return utilsdll::ReadStateFlag(utilsdll::kManagedState); }) ? 1 : 0;
}

bool cfg_set_managed_by_cms(bool managed) {
    return utilsdll::WriteStateFlag(utilsdll::kManagedState, managed);
}

int cfg_is_fips_mode_enabled() {
    return Guarded(true, [] { return utilsdll::ReadStateFlag(utilsdll::kFipsState); }) ? 1 : 0;
}

bool cfg_set_fips_mode(bool on) {
    return utilsdll::WriteStateFlag(utilsdll::kCryptoFipsState, on) &&
           utilsdll::WriteStateFlag(utilsdll::kFipsState, on);
}

void cfg_get_sentrelmanager_info(void* buffer) {
    if (buffer == nullptr) return;
    const WStringView text = cfg_is_managed_by_cms() != 0
                                 ? TEXT("Managed by the central management server")
                                 : TEXT("Not managed");
    auto* const bytes = static_cast<BYTE*>(buffer);
    const auto* const description = reinterpret_cast<const BYTE*>(text.data());
    std::fill_n(bytes, SENTRELMANAGER_INFO_SIZE, BYTE{0});
    std::copy_n(description, text.size() * sizeof(WCHAR), bytes);
}

// --- Services -----------------------------------------------------------------------------------

bool service_is_running(const WCHAR* service) {
    if (service == nullptr) return false;
    const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return GetLastError() == ERROR_ACCESS_DENIED;
    const UniqueServiceHandle opened(OpenServiceW(manager.get(), service, SERVICE_QUERY_STATUS));
    SERVICE_STATUS status = {};
    if (!opened || !QueryServiceStatus(opened.get(), &status)) {
        return GetLastError() == ERROR_ACCESS_DENIED;
    }
    return status.dwCurrentState == SERVICE_RUNNING;
}

int cfg_is_scheduler_running() {
    return service_is_running(kScheduler) ? 1 : 0;
}

void signal_scheduler() {
    // The event is the scheduler's: where it does not exist, nobody wants to know.
    const UniqueHandle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, kConfigurationChanged));
    if (event) SetEvent(event.get());
}

// --- Rights -------------------------------------------------------------------------------------

int sec_get_account_type() {
    return IsMemberOf(WinLocalSystemSid) ? kSystemAccount : kUserAccount;
}

int sec_get_user_type() {
    if (IsUserAnAdmin()) return kAdministrator;
    return IsMemberOf(WinBuiltinGuestsSid) ? kGuest : kStandardUser;
}

}  // extern "C"
