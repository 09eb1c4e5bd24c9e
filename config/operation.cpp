#include "config/operation.h"

#include <product_registry.h>
#include <windows.h>
//
#include <io.h>
#include <utilsdll.h>

#include <optional>

#include "app/services/client_log.h"
#include "app/services/console.h"
#include "app/services/notifications.h"
#include "app/services/run_settings.h"
#include "config/config_file.h"
#include "config/configuration_mutex.h"
#include "config/dispatch.h"
#include "config/modules.h"
#include "config/temporary_file.h"
#include "registry/registry.h"

namespace {

constexpr const WCHAR* kBackupDisabled = TEXT("Backup is disabled");
constexpr const WCHAR* kPasswordRequired = TEXT("Backup requires a password");
constexpr const WCHAR* kNoTemporaryFile = TEXT("Cannot create temp file");
constexpr const WCHAR* kSkeletonInError = TEXT("Cannot create file %s");
constexpr const WCHAR* kSkeletonNotSaved = TEXT("Failed to create config file (%s)");
constexpr const WCHAR* kAccessDenied = TEXT("Access denied.");

// The administrator's switch against backups; a missing key or value allows them.
bool IsBackupDisabled() {
    CRegistry key(true, true);
    DWORD disabled = 0;
    if (key.OpenKey(kUiKey)) {
        key.GetDWORD(kDisableBackupValue, disabled);
        key.CloseKey();
    }
    return disabled != 0;
}

OperationOutcome StoppedBy(Obstacle obstacle) {
    OperationOutcome outcome;
    outcome.obstacle = obstacle;
    return outcome;
}

OperationOutcome Refuse(const WCHAR* message, Obstacle obstacle) {
    log_error_fmt(g_hLog, message);
    ConsolePrint(message);
    return StoppedBy(obstacle);
}

void RemoveExistingFile(const WString& path) {
    if (_waccess(path.c_str(), 0) != 0) return;
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        SetFileAttributesW(path.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    }
    _wunlink(path.c_str());
}

// A document with nothing but a declaration and an empty root element.
bool CreateSkeleton(const WString& path, const WString& destination) {
    ConfigFile skeleton(path);
    if (skeleton.HasError()) {
        log_error_fmt(g_hLog, kSkeletonInError, path.c_str());
        return false;
    }
    skeleton.Document().InsertEndChild(TiXmlDeclaration("1.0", "UTF-8", ""));
    skeleton.Document().InsertEndChild(TiXmlElement(kRootElement));
    if (!skeleton.Save()) {
        log_error_fmt(g_hLog, kSkeletonNotSaved, destination.c_str());
        return false;
    }
    return true;
}

OperationOutcome RunExport(const std::vector<WString>& modules, const WString& file,
                           const Operation& operation, const SessionId& session,
                           const SecureText& password) {
    if (operation->obeysBackupSwitch && IsBackupDisabled()) {
        return Refuse(kBackupDisabled, Obstacle::kBackupDisabled);
    }
    if (password.empty()) return Refuse(kPasswordRequired, Obstacle::kNoPassword);

    TemporaryFile temporary;
    std::optional<SessionUserContext> asUser;
    if (g_RunSettings.bImpersonateUser) asUser.emplace(session.number);

    temporary = TemporaryFile::Make();
    if (temporary.Path().empty()) {
        log_error_fmt(g_hLog, kNoTemporaryFile);
        return StoppedBy(Obstacle::kNoTemporaryFile);
    }
    RemoveExistingFile(temporary.Path());
    if (!CreateSkeleton(temporary.Path(), file)) return StoppedBy(Obstacle::kNoTemporaryFile);

    ConfigFile backup(temporary.Path());
    OperationOutcome outcome = DispatchModules(backup, modules, operation, session, password);
    const bool copied = CopyFileW(temporary.Path().c_str(), file.c_str(), FALSE) != FALSE;
    outcome.succeeded = outcome.succeeded && copied;
    if (outcome.succeeded) {
        NotifyGui(GuiCode::kBackupCompleted, session.number);
    } else {
        ConsolePrint(kAccessDenied);
    }
    // What this account may not delete goes with its owner.
    DeleteFileW(temporary.Path().c_str());
    return outcome;
}

OperationOutcome RunImport(const std::vector<WString>& modules, ConfigFile& file,
                           const Operation& operation, const SessionId& session,
                           const SecureText& password) {
    const ConfigurationMutex serialised;
    OperationOutcome outcome = DispatchModules(file, modules, operation, session, password);
    signal_scheduler();
    return outcome;
}

}  // namespace

OperationOutcome RunOperation(const WString& moduleText, ConfigFile& file,
                              const Operation& operation, const SessionId& session,
                              const SecureText& password) {
    const auto modules = SplitModuleText(moduleText);
    return operation->isExport ? RunExport(modules, file.Path(), operation, session, password)
                               : RunImport(modules, file, operation, session, password);
}
