#include "admin/machine_request.h"

#include "admin/module_report.h"
#include "admin/report.h"
#include "app/run_driver.h"
#include "app/services/run_settings.h"
#include "config/config_file.h"

namespace {

constexpr const WCHAR* kNoSnapshot = TEXT("the machine cannot be backed up; nothing was changed");
constexpr const WCHAR* kNoTemporaryFile = TEXT("no temporary file can be made");

WString ModuleText(const MachineScope& scope) {
    WString text;
    for (const std::string& module : scope.modules) {
        text.append(text.empty() ? TEXT("") : TEXT(" ")).append(Utf8ToWide(module));
    }
    return text;
}

void Configure(const WString& file, const WCHAR* operation, const MachineScope& scope,
               const SecureText& password, bool isQuiet) {
    RunSettings& settings = g_RunSettings;
    settings = RunSettings();
    settings.strConfigFile = file;
    settings.strModule = ModuleText(scope);
    settings.strOperation = operation;
    settings.strSessionId = scope.session;
    settings.strPassword = password.c_str();
    settings.bIncludeUserConfig = scope.hasUser;
    settings.bVpnOnly = scope.isVpnOnly;
    settings.bQuiet = isQuiet;
    settings.bImpersonateUser = false;  // files are the caller's own
}

MachineBackup Export(const WCHAR* operation, const MachineScope& scope, const SecureText& password,
                     bool isQuiet) {
    MachineBackup backup = {TemporaryFile::Make(), {}};
    if (backup.file.Path().empty()) throw Failure(ExitCode::kInaccessible, kNoTemporaryFile);
    Configure(backup.file.Path(), operation, scope, password, isQuiet);
    backup.outcome = RunNormally(false).operation;
    return backup;
}

}  // namespace

MachineBackup BackUp(const MachineScope& scope, const SecureText& password) {
    return Export(TEXT("export"), scope, password, false);
}

Snapshot TakeSnapshot(const MachineScope& scope, const SecureText& password) {
    MachineScope whole = scope;
    whole.isVpnOnly = false;
    Snapshot snapshot = {Export(TEXT("export-install"), whole, password, true), {}};
    ExpectToHaveRun(snapshot.backup.outcome);
    ConfigFile file(snapshot.backup.file.Path());
    if (!file.Load() || file.Root() == nullptr) throw Failure(ExitCode::kInaccessible, kNoSnapshot);
    snapshot.content = ReadContent(*file.Root(), password);
    return snapshot;
}

RequestOutcome RestoreFrom(const WString& file, const MachineScope& scope,
                           const SecureText& password, const SecureText& unlockPassword) {
    Configure(file, TEXT("import"), scope, password, false);
    g_RunSettings.strUnlockPassword = unlockPassword.c_str();
    return RunNormally(false);
}
