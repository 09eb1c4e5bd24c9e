#include "app/run_driver.h"

#include <exception>

#include "app/command_line.h"
#include "app/services/client_log.h"
#include "app/services/interruption.h"
#include "app/services/run_settings.h"
#include "app/services/user_context.h"
#include "app/ui_language.h"
#include "common/handles.h"
#include "common/security.h"
#include "config/request.h"
#include "config/working_copy.h"

namespace {

constexpr const WCHAR* kSavingFinishedEvent =
    TEXT("Global\\_SNCONFIG_EVT_SAVING_FINISH_{F55B18CA-E475-4049-95FC-0D9889C1CD1E}");
constexpr const WCHAR* kLogComponent = TEXT("SA_CONFIGD");
constexpr const WCHAR* kVpnModule = TEXT("vpn");
constexpr const WCHAR* kRequestBroken = TEXT("The request broke off: %s");

bool SetTokenVirtualization(DWORD enabled) {
    UniqueHandle token;
    return OpenProcessToken(GetCurrentProcess(), MAXIMUM_ALLOWED, token.put()) &&
           SetTokenInformation(token.get(), TokenVirtualizationEnabled, &enabled, sizeof enabled);
}

// Switches the redirection of registry and file writes off for this process: what the tool writes
// goes where it says. True when it was on.
bool DisableTokenVirtualization() {
    UniqueHandle token;
    DWORD enabled = 0;
    DWORD size = 0;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()) ||
        !GetTokenInformation(token.get(), TokenVirtualizationEnabled, &enabled, sizeof enabled,
                             &size) ||
        enabled == 0) {
        return false;
    }
    SetTokenVirtualization(0);
    return true;
}

// The event by which other components learn that the job is over: every account may use it.
UniqueHandle CreateSavingFinishedEvent() {
    EveryoneAccess everyone;
    return UniqueHandle(CreateEventW(everyone.get(), TRUE, FALSE, kSavingFinishedEvent));
}

// Writes a plain copy of the configuration file to the path of the caller's choice. Reports nothing
// itself: a wrong password shows as a notification and a missing output file.
void DecryptOnly() {
    const RunSettings& settings = g_RunSettings;
    const DWORD session = SessionId(settings.strSessionId).number;
    const WorkingCopy plain(settings.strConfigFile, session, settings.strPassword);
    CopyFileW(plain.Path().c_str(), settings.strOutputFile.c_str(), FALSE);
}

// The request, whose closing steps follow whatever happens inside it.
RequestOutcome RunRequest() {
    const RunSettings& settings = g_RunSettings;
    try {
        return RunReportedRequest(settings.strConfigFile, settings.strModule, settings.strOperation,
                                  settings.strSessionId, settings.strPassword,
                                  settings.strUnlockPassword);
    } catch (const std::exception& error) {
        log_error_fmt(g_hLog, kRequestBroken, Utf8ToWide(error.what()).c_str());
        RequestOutcome broken;
        broken.result = kResultUnusable;
        return broken;
    }
}

}  // namespace

RequestOutcome RunNormally(bool wasVirtualized) {
    RunSettings& settings = g_RunSettings;
    if (settings.bVpnOnly) settings.strModule = kVpnModule;

    const UniqueHandle savingFinished = CreateSavingFinishedEvent();
    ResetEvent(savingFinished.get());
    const TidyOnInterruption announced(
        [&] { return SetEvent(savingFinished.get()) != FALSE || !savingFinished; });
    g_hLog = log_initialize(kLogComponent);

    RequestOutcome outcome = RunRequest();

    if (wasVirtualized) SetTokenVirtualization(1);
    if (g_hLog != nullptr) log_deinitialize(g_hLog);
    g_hLog = nullptr;
    SetEvent(savingFinished.get());
    return outcome;
}

RunEnvironment::RunEnvironment() : wasVirtualized_(DisableTokenVirtualization()) {
    SetUiLanguage();
}

RunEnvironment::~RunEnvironment() {
    g_RunSettings = RunSettings();
}

int RunTool(int argc, WCHAR** argv) {
    HandleInterruptions();
    const RunEnvironment environment;
    if (const auto exitCode = ParseCommandLine(argc, argv)) return *exitCode;
    const RunSettings& settings = g_RunSettings;
    if (!settings.strConfigFile.empty() && !settings.strOutputFile.empty() &&
        !settings.strPassword.empty()) {
        try {
            DecryptOnly();
        } catch (const std::exception&) {
            // Whatever happens shows in the missing output file, as every failure of this job.
            return kResultOk;
        }
        return kResultOk;
    }
    return RunNormally(environment.WasVirtualized()).result;
}
