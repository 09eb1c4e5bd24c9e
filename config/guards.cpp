#include "config/guards.h"

#include <utilsdll.h>

#include "app/services/client_log.h"
#include "app/services/console.h"
#include "app/services/notifications.h"
#include "config/config_file.h"
#include "config/password_verifier.h"

namespace {

constexpr const WCHAR* kNoRights =
    TEXT("Admin rights are required to import configuration files.\n");
constexpr const WCHAR* kCannotOpen = TEXT("Cannot open file %s");
constexpr const WCHAR* kWrongFilePassword = TEXT("Incorrect password.");
constexpr const WCHAR* kManagedCentrally =
    TEXT("The configuration settings are protected with registration. \n");
constexpr const WCHAR* kLocked = TEXT(
    "The configuration settings are protected with lock. You must use the -k option to install "
    "configurations.\n");
constexpr const WCHAR* kWrongUnlockPassword = TEXT("Incorrect password.\n");

constexpr int kAccountThatMayImport = 2;
constexpr int kLastUserTypeRefused = 1;  // 0 and 1: guests and standard users

int Refuse(const WCHAR* message, int result) {
    ConsolePrint(message);
    return result;
}

}  // namespace

int CheckRights() {
    if (sec_get_account_type() == kAccountThatMayImport) return kResultOk;
    const int userType = sec_get_user_type();
    if (userType < 0 || userType > kLastUserTypeRefused) return kResultOk;
    return Refuse(kNoRights, kResultNoRights);
}

int CheckFilePassword(ConfigFile& workingCopy, const SecureText& password, DWORD sessionId) {
    if (!workingCopy.Load()) {
        log_error_fmt(g_hLog, kCannotOpen, workingCopy.Path().c_str());
        return kResultUnusable;
    }
    const TiXmlElement* const root = workingCopy.Document().FirstChildElement(kRootElement);
    const char* const verifier = root == nullptr ? nullptr : root->Attribute(kVerifierAttribute);
    if (verifier == nullptr || *verifier == '\0' || CheckPasswordVerifier(verifier, password)) {
        return kResultOk;
    }
    NotifyGui(GuiCode::kWrongPassword, sessionId);
    log_error_fmt(g_hLog, kWrongFilePassword);
    return kResultUnusable;
}

int CheckLocks(const SecureText& unlockPassword, bool isParentTrusted) {
    if (!isParentTrusted && cfg_is_managed_by_cms() != 0 && cfg_is_scheduler_running() != 0) {
        return Refuse(kManagedCentrally, kResultProtected);
    }
    BYTE managementInfo[SENTRELMANAGER_INFO_SIZE] = {};
    cfg_get_sentrelmanager_info(managementInfo);
    if (!IsLockPasswordSet()) return kResultOk;
    if (!sec_is_registry_locked() && isParentTrusted) return kResultOk;
    if (unlockPassword.empty()) return Refuse(kLocked, kResultProtected);
    if (cfg_sentrelmanager_cmp_pwd(unlockPassword.c_str())) return kResultOk;
    return Refuse(kWrongUnlockPassword, kResultWrongUnlockPassword);
}

bool IsLockPasswordSet() {
    return !cfg_sentrelmanager_cmp_pwd(TEXT(""));
}
