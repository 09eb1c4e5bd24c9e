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

// Tells what is wrong with a file that has no root element to import from.
bool Refuse(GuiCode code, const WCHAR* message, const WString& path, DWORD sessionId) {
    NotifyGui(code, sessionId);
    log_error_fmt(g_hLog, message, path.c_str());
    return false;
}

void RemoveComments(ConfigFile& file) {
    StripComments(file.Root());
    if (file.Save()) log_debug_fmt(g_hLog, kCommentsRemoved, file.Path().c_str());
}

}  // namespace

bool BeginImport(ConfigFile& file, const Operation& operation, DWORD sessionId) {
    const WString& path = file.Path();
    if (operation->checksFile && path.empty()) {
        log_error_fmt(g_hLog, kNoFile, path.c_str());
        return false;
    }
    const bool isLoaded = file.Load();
    if (operation->checksFile && !isLoaded) {
        return Refuse(GuiCode::kProcessingFailed, kCannotProcess, path, sessionId);
    }
    if (operation->checksFile && file.Document().FirstChildElement(kRootElement) == nullptr) {
        return Refuse(GuiCode::kInvalidFormat, kNoRoot, path, sessionId);
    }
    // What other operations cannot load is left to the plug-ins as it is.
    if (isLoaded && file.Root() != nullptr) RemoveComments(file);
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
