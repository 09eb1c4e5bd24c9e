#include "config/request.h"

#include <utilsdll.h>

#include <optional>

#include "app/services/client_log.h"
#include "app/services/interruption.h"
#include "app/services/run_settings.h"
#include "common/handles.h"
#include "config/configuration_change.h"
#include "config/operation.h"
#include "config/trusted_parent.h"
#include "config/working_copy.h"
#include "registry/vpn_only.h"

namespace {

constexpr const WCHAR* kEveryModule = TEXT("*");
constexpr const WCHAR* kNotLocked = TEXT("Failed to lock the registry configuration");

// Locks the registry configuration again at the end of an operation that may have found it
// unlocked, when there is a lock password.
class RegistryRelock {
  public:
    explicit RegistryRelock(bool isDue) : isDue_(isDue) {}
    RegistryRelock(const RegistryRelock&) = delete;
    RegistryRelock& operator=(const RegistryRelock&) = delete;
    ~RegistryRelock() {
        if (!isDue_ || !IsLockPasswordSet()) return;
        // A client that stays unlocked is the worst that a request can leave: what failed for a
        // moment is tried again, and a failure that lasts is told.
        if (!sec_set_sa_registry_lock(true) && !sec_set_sa_registry_lock(true) &&
            !sec_is_registry_locked()) {
            log_error_fmt(g_hLog, kNotLocked);
        }
    }

  private:
    bool isDue_;
};

// The client's file-protection components stand back while this lives.
struct FileProtectionBypass {
    UniqueHandle fileSystemFilter{bBypassFsfilter()};
    UniqueHandle fileShield{bBypassGuardlet()};
};

// Checks the rights for a guarded import, and makes and checks its working copy. Nothing, or the
// result with which the request ends here.
std::optional<int> PrepareGuardedImport(const WString& source, std::optional<WorkingCopy>& working,
                                        std::optional<ConfigFile>& file, const SecureText& password,
                                        DWORD sessionId) {
    if (const int refused = CheckRights()) return refused;
    working.emplace(source, sessionId, password);
    if (working->Path().empty()) return kResultUnusable;
    file.emplace(working->Path());
    if (!password.empty()) {
        if (const int refused = CheckFilePassword(*file, password, sessionId)) return refused;
    }
    if (g_RunSettings.bVpnOnly) {
        file->Unload();
        if (FilterVpnOnlyConfig(working->Path()) != kVpnOnlyDone) return kResultOk;
    }
    return std::nullopt;
}

// Runs the operation, announced to the crypto service where changes are to be announced. Without
// the service's consent nothing runs.
OperationOutcome RunAnnounced(const WString& modules, ConfigFile& file, const Operation& operation,
                              const SessionId& session, const SecureText& password) {
    std::optional<ConfigurationChange> change;
    if (IsChangeAnnounced()) {
        WaitOutInterruptions();
        change.emplace();
    }
    if (!change || change->HasBegun()) {
        return RunOperation(modules, file, operation, session, password);
    }
    OperationOutcome outcome;
    outcome.obstacle = Obstacle::kNotAnnounced;
    return outcome;
}

// A request that ends before its operation.
RequestOutcome EndWith(int result) {
    RequestOutcome outcome;
    outcome.result = result;
    outcome.operation.obstacle = Obstacle::kGuards;
    return outcome;
}

}  // namespace

int RunConfigRequest(const WString& source, const WString& moduleText, const WString& operationName,
                     const WString& sessionId, const SecureText& password,
                     const SecureText& unlockPassword) {
    return RunReportedRequest(source, moduleText, operationName, sessionId, password,
                              unlockPassword)
        .result;
}

RequestOutcome RunReportedRequest(const WString& source, const WString& moduleText,
                                  const WString& operationName, const WString& sessionId,
                                  const SecureText& password, const SecureText& unlockPassword) {
    const SessionId session(sessionId);
    const Operation operation(operationName.empty() ? kDefaultOperation : operationName);
    std::optional<WorkingCopy> working;
    std::optional<ConfigFile> file;
    if (operation->isGuarded) {
        if (const auto ended =
                PrepareGuardedImport(source, working, file, password, session.number)) {
            return EndWith(*ended);
        }
    } else {
        file.emplace(source);
    }
    const WString modules = moduleText.empty() ? kEveryModule : moduleText;
    const bool isParentTrusted = IsParentTrusted();
    if (operation->isGuarded) {
        if (const int refused = CheckLocks(unlockPassword, isParentTrusted))
            return EndWith(refused);
    }

    if (!operation->isExport) WaitOutInterruptions();
    const FileProtectionBypass bypass;
    const RegistryRelock lockedAgain(operation->locksRegistryAgain);
    if (operation->unlocksRegistry && !unlockPassword.empty() && !isParentTrusted) {
        sec_set_sa_registry_lock(false);
    }
    RequestOutcome outcome;
    outcome.operation = RunAnnounced(modules, *file, operation, session, password);
    if (operation->forgetsInstallerState) ForgetInstallerState();
    outcome.result = kResultOk;
    return outcome;
}
