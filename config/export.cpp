#include "config/export.h"

#include <windows.h>
//
#include <io.h>

#include <optional>

#include "app/client_log.h"
#include "app/console.h"
#include "app/notifications.h"
#include "app/run_settings.h"
#include "app/user_context.h"
#include "config/comments.h"
#include "config/config_file.h"
#include "config/header.h"
#include "config/modules.h"
#include "config/operations.h"
#include "config/temporary_file.h"
#include "registry/locations.h"
#include "registry/registry.h"
#include "registry/user_configuration.h"

namespace {

constexpr const WCHAR* kBackupDisabled = TEXT("Backup is disabled");
constexpr const WCHAR* kPasswordRequired = TEXT("Backup requires a password");
constexpr const WCHAR* kNoTemporaryFile = TEXT("Cannot create temp file");
constexpr const WCHAR* kSkeletonInError = TEXT("Cannot create file %s");
constexpr const WCHAR* kSkeletonNotSaved = TEXT("Failed to create config file (%s)");
constexpr const WCHAR* kCannotOpen = TEXT("Cannot open file %s");
constexpr const WCHAR* kNoRoot = TEXT("Failed to acquire root element ... (%s)");
constexpr const WCHAR* kHeaderNotSaved = TEXT("Failed to save system settings to config file (%s)");
constexpr const WCHAR* kCannotParse = TEXT("Failed to parse config file (%s)");
constexpr const WCHAR* kCommentsRemoved = TEXT("Comments removed from %s");
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

void Refuse(const WCHAR* message) {
    log_error_fmt(g_hLog, message);
    ConsolePrint(message);
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

bool WriteHeaderToFile(const WString& path, const SecureText& password) {
    ConfigFile file(path);
    if (!file.Load()) {
        log_error_fmt(g_hLog, kCannotOpen, path.c_str());
        return false;
    }
    if (file.Root() == nullptr) {
        log_error_fmt(g_hLog, kNoRoot, path.c_str());
        return false;
    }
    WriteHeader(file.Root(), password);
    if (!file.Save()) {
        log_error_fmt(g_hLog, kHeaderNotSaved, path.c_str());
        return false;
    }
    return true;
}

// Appends the settings of the session's user. A file that does not load is only logged; false when
// it has no root element.
bool AddUserConfiguration(const WString& path, const SecureText& password, DWORD sessionId) {
    ConfigFile file(path);
    if (!file.Load()) log_error_fmt(g_hLog, kCannotParse, path.c_str());
    if (file.Root() == nullptr) {
        NotifyGui(GuiCode::kInvalidFormat, sessionId);
        log_error_fmt(g_hLog, kNoRoot, path.c_str());
        return false;
    }
    ExportUserConfiguration(file.Root(), password, sessionId);
    file.Save();
    return true;
}

bool RemoveComments(const WString& path) {
    ConfigFile file(path);
    if (!file.Load() || file.Root() == nullptr) {
        log_error_fmt(g_hLog, kCannotParse, path.c_str());
        return false;
    }
    StripComments(file.Root());
    const bool saved = file.Save();
    log_debug_fmt(g_hLog, kCommentsRemoved, path.c_str());
    return saved;
}

// Fills the skeleton at `path`: header, each module's element, the user's settings, and what the
// operation asks for. False when a phase or a plug-in failed.
bool WriteConfiguration(const WString& path, const std::vector<WString>& modules,
                        const WString& operation, const WString& sessionId,
                        const SecureText& password) {
    if (!WriteHeaderToFile(path, password)) return false;
    bool succeeded = RunModules(path, modules, operation, sessionId, password);
    if (succeeded && g_RunSettings.bIncludeUserConfig &&
        !AddUserConfiguration(path, password, SessionNumber(sessionId))) {
        return false;
    }
    if (operation == kOpExportNoComments || operation == kOpExportInstall) {
        succeeded = RemoveComments(path) && succeeded;
    }
    return succeeded;
}

}  // namespace

void ExportConfiguration(const WString& moduleText, const WString& file, const WString& operation,
                         const WString& sessionId, const SecureText& password) {
    const auto modules = SplitModuleText(moduleText);
    if (operation != kOpExportInstall && IsBackupDisabled()) return Refuse(kBackupDisabled);
    if (password.empty()) return Refuse(kPasswordRequired);

    const DWORD session = SessionNumber(sessionId);
    std::optional<SessionUserContext> asUser;
    if (g_RunSettings.bImpersonateUser) asUser.emplace(session);

    const TemporaryFile temporary;
    if (temporary.Path().empty()) {
        log_error_fmt(g_hLog, kNoTemporaryFile);
        return;
    }
    RemoveExistingFile(temporary.Path());
    if (!CreateSkeleton(temporary.Path(), file)) return;

    const bool written =
        WriteConfiguration(temporary.Path(), modules, operation, sessionId, password);
    const bool copied = CopyFileW(temporary.Path().c_str(), file.c_str(), FALSE) != FALSE;
    if (written && copied) {
        NotifyGui(GuiCode::kBackupCompleted, session);
    } else {
        ConsolePrint(kAccessDenied);
    }
}
