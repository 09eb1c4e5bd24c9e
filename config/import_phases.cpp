#include "config/import_phases.h"

#include "app/services/client_log.h"
#include "app/services/notifications.h"
#include "config/comments.h"
#include "config/config_file.h"
#include "registry/user_configuration.h"

namespace {

constexpr const WCHAR* kNoFile = TEXT("Failed to copy file for import (%s)");
constexpr const WCHAR* kCannotProcess = TEXT("Failed to process the file (%s)");
constexpr const WCHAR* kNoRoot = TEXT("Failed to acquire root element ... (%s)");
constexpr const WCHAR* kCommentsRemoved = TEXT("Comments removed from (%s)");

bool CheckFile(const WString& path, DWORD sessionId) {
    if (path.empty()) {
        log_error_fmt(g_hLog, kNoFile, path.c_str());
        return false;
    }
    ConfigFile file(path);
    if (!file.Load()) {
        NotifyGui(GuiCode::kProcessingFailed, sessionId);
        log_error_fmt(g_hLog, kCannotProcess, path.c_str());
        return false;
    }
    if (file.Root() == nullptr) {
        NotifyGui(GuiCode::kInvalidFormat, sessionId);
        log_error_fmt(g_hLog, kNoRoot, path.c_str());
        return false;
    }
    return true;
}

// A file that does not load is left to the plug-ins as it is.
void RemoveComments(const WString& path) {
    ConfigFile file(path);
    if (!file.Load() || file.Root() == nullptr) return;
    StripComments(file.Root());
    if (!file.Save()) return;
    log_debug_fmt(g_hLog, kCommentsRemoved, path.c_str());
}

}  // namespace

bool BeginImport(const WString& file, const Operation& operation, DWORD sessionId) {
    if (operation->checksFile && !CheckFile(file, sessionId)) return false;
    RemoveComments(file);
    return true;
}

void FinishImport(const WString& file, const Operation& operation, DWORD sessionId,
                  const SecureText& password, bool modulesSucceeded) {
    if (!operation->restoresUserSettings) return;
    ImportUserConfiguration(file, password, sessionId);
    DeleteFileW(file.c_str());
    NotifyGui(modulesSucceeded ? GuiCode::kRestoreCompleted : GuiCode::kProcessingFailed,
              sessionId);
}
