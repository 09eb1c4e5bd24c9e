// Services. A service runs while its key in the registry has a value of the name kRuns. The rights
// to the key are the rights to the service.
#include <shlobj.h>
#include <winreg.h>
#include <winsvc.h>

#include <string>

#include "handles.h"
#include "last_error.h"

using namespace platform;

namespace {

constexpr std::u16string_view kServicesKey = u"SYSTEM\\CurrentControlSet\\Services\\";
constexpr WCHAR kRuns[] = TEXT("IsRunning");
constexpr std::size_t kMaxName = 256;
constexpr DWORD kKnownServiceRights = SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP;
constexpr DWORD kKnownManagerRights = SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE;

// What a handle of the manager names.
class ServiceManager : public GrantedObject {
    using GrantedObject::GrantedObject;
};

// A service's key, opened for what its handle may do.
class Service : public GrantedObject {
  public:
    Service(HKEY key, DWORD rights) : GrantedObject(rights), key_(key) {}
    ~Service() override { RegCloseKey(key_); }

    bool Runs() const {
        return RegQueryValueExW(key_, kRuns, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
    }
    SERVICE_STATUS Status() const {
        SERVICE_STATUS status = {};
        status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
        status.dwCurrentState = Runs() ? SERVICE_RUNNING : SERVICE_STOPPED;
        status.dwControlsAccepted = Runs() ? SERVICE_ACCEPT_STOP : 0;
        return status;
    }
    BOOL Start() const {
        if (Runs()) return Fail(ERROR_SERVICE_ALREADY_RUNNING);
        return Finish(RegSetValueExW(key_, kRuns, 0, REG_NONE, nullptr, 0));
    }
    BOOL Stop() const {
        const LSTATUS result = RegDeleteValueW(key_, kRuns);
        return result == ERROR_FILE_NOT_FOUND ? Fail(ERROR_SERVICE_NOT_ACTIVE) : Finish(result);
    }

  private:
    static BOOL Finish(LSTATUS result) {
        return result == ERROR_SUCCESS ? TRUE : Fail(static_cast<DWORD>(result));
    }

    const HKEY key_;
};

SC_HANDLE OpenServiceHandle(std::shared_ptr<KernelObject> object) {
    return static_cast<SC_HANDLE>(OpenHandle(std::move(object)));
}

bool CheckName(LPCWSTR name) {
    if (name == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const std::u16string_view text = name;
    const bool isName =
        !text.empty() && text.size() <= kMaxName && text.find_first_of(u"/\\") == text.npos;
    return isName || Fail(ERROR_INVALID_NAME);
}

// Opens the service's key - or makes it, when it must not exist yet - for the rights. Null with the
// last error set.
SC_HANDLE OpenOrCreate(LPCWSTR name, DWORD rights, bool creates) {
    const bool changes = (rights & ~static_cast<DWORD>(SERVICE_QUERY_STATUS)) != 0;
    const REGSAM access = KEY_QUERY_VALUE | (changes || creates ? KEY_SET_VALUE : 0);
    const std::u16string path = std::u16string(kServicesKey) + name;
    if ((rights & ~kKnownServiceRights) != 0) return Fail<SC_HANDLE>(ERROR_NOT_SUPPORTED);
    HKEY key = nullptr;
    DWORD disposition = REG_OPENED_EXISTING_KEY;
    const LSTATUS error =
        creates ? RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr,
                                  REG_OPTION_NON_VOLATILE, access, nullptr, &key, &disposition)
                : RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access, &key);
    if (error == ERROR_FILE_NOT_FOUND) return Fail<SC_HANDLE>(ERROR_SERVICE_DOES_NOT_EXIST);
    if (error != ERROR_SUCCESS) return Fail<SC_HANDLE>(static_cast<DWORD>(error));
    auto service = std::make_shared<Service>(key, rights);
    const bool isTaken = creates && disposition != REG_CREATED_NEW_KEY;
    return isTaken ? Fail<SC_HANDLE>(ERROR_SERVICE_EXISTS) : OpenServiceHandle(std::move(service));
}

}  // namespace

extern "C" {

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName,
                                DWORD dwDesiredAccess) {
    if (lpMachineName != nullptr || lpDatabaseName != nullptr ||
        (dwDesiredAccess & ~kKnownManagerRights) != 0) {
        return Fail<SC_HANDLE>(ERROR_NOT_SUPPORTED);
    }
    if ((dwDesiredAccess & SC_MANAGER_CREATE_SERVICE) != 0 && !IsUserAnAdmin()) {
        return Fail<SC_HANDLE>(ERROR_ACCESS_DENIED);
    }
    // The right to connect comes with every handle.
    return OpenServiceHandle(
        std::make_shared<ServiceManager>(dwDesiredAccess | SC_MANAGER_CONNECT));
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess) {
    if (!ObjectOf<ServiceManager>(hSCManager) || !CheckName(lpServiceName)) return nullptr;
    return OpenOrCreate(lpServiceName, dwDesiredAccess, false);
}

SC_HANDLE WINAPI CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName,
                                LPCWSTR /*lpDisplayName*/, DWORD dwDesiredAccess,
                                DWORD dwServiceType, DWORD /*dwStartType*/,
                                DWORD /*dwErrorControl*/, LPCWSTR lpBinaryPathName,
                                LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                                LPCWSTR lpServiceStartName, LPCWSTR lpPassword) {
    if (!CheckName(lpServiceName)) return nullptr;
    if (lpBinaryPathName == nullptr) return Fail<SC_HANDLE>(ERROR_INVALID_PARAMETER);
    if (lpLoadOrderGroup != nullptr || lpdwTagId != nullptr || lpDependencies != nullptr ||
        lpServiceStartName != nullptr || lpPassword != nullptr ||
        dwServiceType != SERVICE_WIN32_OWN_PROCESS) {
        return Fail<SC_HANDLE>(ERROR_NOT_SUPPORTED);
    }
    if (!ObjectOf<ServiceManager>(hSCManager, SC_MANAGER_CREATE_SERVICE)) return nullptr;
    return OpenOrCreate(lpServiceName, dwDesiredAccess, true);
}

BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject) {
    return ReleaseHandle(hSCObject) ? TRUE : FALSE;
}

BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus) {
    const auto service = ObjectOf<Service>(hService, SERVICE_QUERY_STATUS);
    if (!service) return FALSE;
    *lpServiceStatus = service->Status();
    return TRUE;
}

BOOL WINAPI StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs,
                          LPCWSTR* /*lpServiceArgVectors*/) {
    const auto service = ObjectOf<Service>(hService, SERVICE_START);
    if (!service) return FALSE;
    return dwNumServiceArgs == 0 ? service->Start() : Fail(ERROR_NOT_SUPPORTED);
}

BOOL WINAPI ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus) {
    if (dwControl != SERVICE_CONTROL_STOP) return Fail(ERROR_INVALID_SERVICE_CONTROL);
    const auto service = ObjectOf<Service>(hService, SERVICE_STOP);
    if (!service || !service->Stop()) return FALSE;
    *lpServiceStatus = service->Status();
    return TRUE;
}
}
