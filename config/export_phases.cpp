#include "config/export_phases.h"

#include "app/services/client_log.h"
#include "app/services/notifications.h"
#include "app/services/run_settings.h"
#include "config/comments.h"
#include "config/config_file.h"
#include "config/header.h"
#include "config/temporary_file.h"
#include "registry/user_configuration.h"

namespace {

constexpr const WCHAR* kCannotOpen = TEXT("Cannot open file %s");
constexpr const WCHAR* kNoRoot = TEXT("Failed to acquire root element ... (%s)");
constexpr const WCHAR* kNotSaved = TEXT("Failed to save system settings to config file (%s)");
constexpr const WCHAR* kCannotParse = TEXT("Failed to parse config file (%s)");
constexpr const WCHAR* kCommentsRemoved = TEXT("Comments removed from %s");

bool Save(const ConfigFile& file, const WString& path) {
    if (file.Save()) return true;
    log_error_fmt(g_hLog, kNotSaved, path.c_str());
    return false;
}

// Appends the settings of the session's user. False when the file has no root element.
bool AddUserConfiguration(const WString& path, const SecureText& password, DWORD sessionId) {
    ConfigFile file(path);
    if (!file.Load()) log_error_fmt(g_hLog, kCannotParse, path.c_str());
    if (file.Root() == nullptr) {
        NotifyGui(GuiCode::kInvalidFormat, sessionId);
        log_error_fmt(g_hLog, kNoRoot, path.c_str());
        return false;
    }
    ExportUserConfiguration(file.Root(), password, sessionId);
    // The user's rights have ended with that, and the user could write the file.
    if (!ReplaceByOwnFile(path, nullptr, 0)) {
        log_error_fmt(g_hLog, kNotSaved, path.c_str());
        return false;
    }
    if (Save(file, path)) return true;
    // What the modules wrote stays, or no file that could take the place of an older backup.
    file.Root()->RemoveChild(file.Root()->FirstChildElement(kUserConfigurationElement));
    if (!file.Save()) DeleteFileW(path.c_str());
    return false;
}

bool RemoveComments(const WString& path) {
    ConfigFile file(path);
    if (!file.Load() || file.Root() == nullptr) {
        log_error_fmt(g_hLog, kCannotParse, path.c_str());
        return false;
    }
    StripComments(file.Root());
    if (!Save(file, path)) return false;
    log_debug_fmt(g_hLog, kCommentsRemoved, path.c_str());
    return true;
}

}  // namespace

bool BeginExport(const WString& path, const SecureText& password) {
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
    return Save(file, path);
}

bool FinishExport(const WString& file, const Operation& operation, DWORD sessionId,
                  const SecureText& password, bool modulesSucceeded) {
    bool succeeded = modulesSucceeded;
    if (modulesSucceeded && g_RunSettings.bIncludeUserConfig &&
        !AddUserConfiguration(file, password, sessionId)) {
        return false;
    }
    if (operation->stripsCommentsAtEnd) {
        succeeded = RemoveComments(file) && succeeded;
    }
    return succeeded;
}
