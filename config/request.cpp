#include "config/request.h"

#include <utilsdll.h>

#include <algorithm>
#include <iterator>

#include "app/services/client_log.h"
#include "app/services/run_settings.h"
#include "app/services/user_context.h"
#include "common/handles.h"
#include "config/configuration_change.h"
#include "config/operation.h"
#include "config/operations.h"
#include "config/trusted_parent.h"
#include "config/working_copy.h"
#include "registry/vpn_only.h"

namespace {

constexpr const WCHAR* kEveryModule = TEXT("*");
constexpr const WCHAR* kNotLocked = TEXT("Failed to lock the registry configuration");

constexpr const WCHAR* kGuardedImports[] = {kOpImport, kOpImportPushConfig, kOpImportGwyipConfig,
                                            kOpImportInstallerConfig};
// Operations after which a configuration with a lock password is locked again.
constexpr const WCHAR* kLockingOperations[] = {kOpImport, kOpImportSettings, kOpImportPushConfig,
                                               kOpImportInstallerConfig};

template <std::size_t size>
bool Contains(const WCHAR* const (&operations)[size], const WString& operation) {
    return std::find(std::begin(operations), std::end(operations), operation) !=
           std::end(operations);
}

// The file that a request works on: the given one, or a copy that is deleted at the end.
class WorkingFile {
  public:
    WorkingFile(const WString& file, DWORD sessionId)
        : file_(file), path_(file), sessionId_(sessionId) {}
    WorkingFile(const WorkingFile&) = delete;
    WorkingFile& operator=(const WorkingFile&) = delete;
    ~WorkingFile() {
        if (path_ != file_) DeleteConfigCopy(path_, sessionId_);
    }

    // Goes over to a plain copy; false when it cannot be made.
    bool UseCopy(const SecureText& password) {
        path_ = PrepareConfigCopy(file_, sessionId_, password);
        return !path_.empty();
    }
    const WString& Path() const { return path_; }

  private:
    WString file_;
    WString path_;
    DWORD sessionId_;
};

// Locks the registry configuration again at the end of an operation that may have found it
// unlocked, when there is a lock password.
class RegistryRelock {
  public:
    explicit RegistryRelock(const WString& operation)
        : isDue_(Contains(kLockingOperations, operation)) {}
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

}  // namespace

int RunConfigRequest(const WString& file, const WString& moduleText, const WString& operation,
                     const WString& sessionId, const SecureText& password,
                     const SecureText& unlockPassword) {
    const DWORD session = SessionNumber(sessionId);
    WorkingFile working(file, session);
    const bool isGuarded = Contains(kGuardedImports, operation);

    // May the caller, and does the file open?
    if (isGuarded) {
        if (const int refused = CheckRights()) return refused;
        if (!working.UseCopy(password)) return kResultUnusable;
        if (!password.empty()) {
            if (const int refused = CheckFilePassword(working.Path(), password, session)) {
                return refused;
            }
        }
        if (g_RunSettings.bVpnOnly && FilterVpnOnlyConfig(working.Path()) != kVpnOnlyDone) {
            return kResultOk;
        }
    }

    const WString modules = moduleText.empty() ? kEveryModule : moduleText;
    const WString effectiveOperation = operation.empty() ? kOpExport : operation;

    // Is the configuration locked?
    const bool isParentTrusted = IsParentTrusted();
    if (isGuarded) {
        if (const int refused = CheckLocks(unlockPassword, isParentTrusted)) return refused;
    }

    // The client's file protection stands aside while these are open.
    const UniqueHandle fileSystemFilter(bBypassFsfilter());
    const UniqueHandle fileShield(bBypassGuardlet());
    const RegistryRelock lockedAgain(effectiveOperation);
    if (effectiveOperation == kOpImport && !unlockPassword.empty() && !isParentTrusted) {
        sec_set_sa_registry_lock(false);
    }

    if (IsChangeAnnounced()) {
        const ConfigurationChange change;
        if (change.HasBegun()) {
            RunOperation(modules, working.Path(), effectiveOperation, sessionId, password);
        }
    } else {
        RunOperation(modules, working.Path(), effectiveOperation, sessionId, password);
    }
    if (effectiveOperation == kOpImportInstallerConfig) ForgetInstallerState();
    return kResultOk;
}
