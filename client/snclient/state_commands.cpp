// Commands that set or show what stands around the configuration tool.
#include <utilsdll.h>

#include "client/snclient/commands.h"
#include "client/sncryptd/crypto_state.h"
#include "common/console_text.h"
#include "common/format.h"
#include "common/handles.h"
#include "common/path.h"
#include "common/registry_access.h"

namespace {

constexpr const WCHAR* kMayNot = TEXT("cannot write the client's state: are you an administrator?");

int Done(bool written) {
    return written ? kExitOk : Failed(kMayNot);
}

// --- Switches -----------------------------------------------------------------------------------

int Switch(const WString& state, bool (*set)(bool)) {
    return Done(set(state == TEXT("on")));
}

// --- Services -----------------------------------------------------------------------------------

constexpr DWORD kServiceRights = SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS;

// What it takes a service to start or to stop at most.
constexpr ULONGLONG kServiceLimitMilliseconds = 30'000;
constexpr DWORD kServicePauseMilliseconds = 20;

// A service that is not there yet becomes one of the reference program, which does nothing but run.
UniqueServiceHandle RegisterService(const WCHAR* name) {
    const UniqueServiceHandle manager(
        OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE));
    if (!manager) return {};
    const WString program = TEXT("\"") + JoinPath(cfg_get_install_dir(), TEXT("snservice.exe\""));
    return UniqueServiceHandle(CreateServiceW(
        manager.get(), name, name, kServiceRights, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
        SERVICE_ERROR_NORMAL, program.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
}

UniqueServiceHandle OpenNamedService(const WCHAR* name) {
    const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return {};
    return UniqueServiceHandle(OpenServiceW(manager.get(), name, kServiceRights));
}

// Whether the service gets into the state that it was told to get into; else with the last error.
bool Reaches(const UniqueServiceHandle& service, DWORD state) {
    const ULONGLONG start = GetTickCount64();
    SERVICE_STATUS status = {};
    while (QueryServiceStatus(service.get(), &status)) {
        if (status.dwCurrentState == state) return true;
        const bool ended = status.dwCurrentState == SERVICE_STOPPED;
        if (ended || GetTickCount64() - start > kServiceLimitMilliseconds) {
            SetLastError(ended ? status.dwWin32ExitCode : ERROR_SERVICE_REQUEST_TIMEOUT);
            return false;
        }
        Sleep(kServicePauseMilliseconds);
    }
    return false;
}

int StartNamedService(const WCHAR* name) {
    UniqueServiceHandle service = OpenNamedService(name);
    if (!service && GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST) service = RegisterService(name);
    if (service &&
        (StartServiceW(service.get(), 0, nullptr) ||
         GetLastError() == ERROR_SERVICE_ALREADY_RUNNING) &&
        Reaches(service, SERVICE_RUNNING)) {
        return kExitOk;
    }
    return Failed(TEXT("cannot start %s (error %lu)"), name, GetLastError());
}

int StopNamedService(const WCHAR* name) {
    const UniqueServiceHandle service = OpenNamedService(name);
    SERVICE_STATUS status = {};
    if (service &&
        (ControlService(service.get(), SERVICE_CONTROL_STOP, &status) ||
         GetLastError() == ERROR_SERVICE_NOT_ACTIVE) &&
        Reaches(service, SERVICE_STOPPED)) {
        return kExitOk;
    }
    return Failed(TEXT("cannot stop %s (error %lu)"), name, GetLastError());
}

// --- Status -------------------------------------------------------------------------------------

void ShowFact(const WCHAR* name, const WCHAR* value) {
    WriteConsoleText(FormatWide(TEXT("%s: %s\n"), name, value));
}

void ShowFact(const WCHAR* name, bool yes) {
    ShowFact(name, yes ? TEXT("yes") : TEXT("no"));
}

const WCHAR* UserTypeName() {
    switch (sec_get_user_type()) {
        case 0:
            return TEXT("guest");
        case 2:
            return TEXT("administrator");
        default:
            return TEXT("standard user");
    }
}

void ShowFipsError() {
    WString message = FipsError();
    if (message.empty()) return;
    if (message.ends_with(TEXT('\n'))) message.pop_back();
    ShowFact(TEXT("FIPS error"), OneLine(message).c_str());
}

void ShowServices() {
    UniqueRegKey services;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("SYSTEM\\CurrentControlSet\\Services"), 0, KEY_READ,
                  services.put());
    std::vector<WString> names;
    SubkeyNames(services.get(), names);
    for (const WString& name : names) {
        // The client's services alone: a machine has many others.
        if (!name.starts_with(TEXT("SA_"))) continue;
        ShowFact(FormatWide(TEXT("service %s"), name.c_str()).c_str(),
                 service_is_running(name.c_str()) ? TEXT("running") : TEXT("stopped"));
    }
}

}  // namespace

int SetLockPassword(Arguments arguments) {
    const auto password = PasswordArgument(arguments[0]);
    if (!password) return kExitFailed;
    if (password->empty()) return WrongArgument(TEXT("the password is empty"));
    return Done(cfg_sentrelmanager_set_pwd(password->c_str()));
}

int ClearLockPassword(Arguments /*arguments*/) {
    return Done(cfg_sentrelmanager_set_pwd(TEXT("")));
}

int LockRegistry(Arguments /*arguments*/) {
    if (cfg_sentrelmanager_cmp_pwd(TEXT(""))) {
        return Failed(TEXT("no lock password is set, without which the lock does not count"));
    }
    return Done(sec_set_sa_registry_lock(true));
}

int UnlockRegistry(Arguments /*arguments*/) {
    return Done(sec_set_sa_registry_lock(false));
}

int SetManaged(Arguments arguments) {
    return Switch(arguments[0], cfg_set_managed_by_cms);
}

int SetFips(Arguments arguments) {
    return Switch(arguments[0], cfg_set_fips_mode);
}

int LeaveFipsErrorMode(Arguments /*arguments*/) {
    return Done(ClearFipsError());
}

int ControlClientService(Arguments arguments) {
    const WCHAR* const name = arguments[0].c_str();
    return arguments[1] == TEXT("start") ? StartNamedService(name) : StopNamedService(name);
}

int ShowStatus(Arguments /*arguments*/) {
    ShowFact(TEXT("managed"), cfg_is_managed_by_cms() != 0);
    ShowFact(TEXT("FIPS mode"), cfg_is_fips_mode_enabled() != 0);
    ShowFipsError();
    ShowFact(TEXT("lock password set"), !cfg_sentrelmanager_cmp_pwd(TEXT("")));
    ShowFact(TEXT("registry locked"), sec_is_registry_locked());
    ShowServices();
    ShowFact(TEXT("account"), sec_get_account_type() == 2 ? TEXT("system") : TEXT("user"));
    ShowFact(TEXT("user"), UserTypeName());
    return kExitOk;
}
