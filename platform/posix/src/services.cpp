// Services. A service runs while the machine's folder holds a file "services/NAME", by its
// upper-case name.
#include <fcntl.h>
#include <shlobj.h>
#include <sys/stat.h>
#include <unistd.h>
#include <winreg.h>
#include <winsvc.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "descriptor.h"
#include "endpoint.h"
#include "handles.h"
#include "last_error.h"
#include "text.h"

namespace platform {
namespace {

constexpr std::u16string_view kServicesKey = u"SYSTEM\\CurrentControlSet\\Services\\";
constexpr std::size_t kLongestName = 256;
constexpr DWORD kKnownServiceRights = SERVICE_QUERY_STATUS | SERVICE_START | SERVICE_STOP;
constexpr DWORD kKnownManagerRights = SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE;

// What a handle of the manager names.
class ServiceManager : public KernelObject {
  public:
    explicit ServiceManager(DWORD rights) : granted(rights) {}
    const DWORD granted;
};

class Service : public KernelObject {
  public:
    Service(std::u16string_view name, DWORD rights) : name_(UpperCase(name)), granted_(rights) {}

    bool Allows(DWORD right) const { return (granted_ & right) == right; }

    bool Runs() const { return access(StatePath().c_str(), F_OK) == 0; }
    BOOL Start() const;
    BOOL Stop() const;

  private:
    static constexpr const char* kStateFolder = "services";

    std::string StatePath() const {
        return EndpointFolder() + "/" + kStateFolder + "/" + BytesOf(name_);
    }

    const std::u16string name_;
    const DWORD granted_;
};

BOOL Service::Start() const {
    if (EndpointSubfolder(kStateFolder, FolderUse::kOwnerWrites).empty()) return FALSE;
    const UniqueDescriptor state(
        open(StatePath().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (state) return fchmod(state.get(), 0644) == 0 ? TRUE : FailWithErrno(errno);
    return errno == EEXIST ? Fail(ERROR_SERVICE_ALREADY_RUNNING) : FailWithErrno(errno);
}

BOOL Service::Stop() const {
    if (unlink(StatePath().c_str()) == 0) return TRUE;
    return errno == ENOENT ? Fail(ERROR_SERVICE_NOT_ACTIVE) : FailWithErrno(errno);
}

SC_HANDLE OpenServiceHandle(std::shared_ptr<KernelObject> object) {
    return static_cast<SC_HANDLE>(OpenHandle(std::move(object)));
}

// The service behind a handle that has the right; null with the last error set.
std::shared_ptr<Service> ServiceWithRight(SC_HANDLE handle, DWORD right) {
    auto service = ObjectOf<Service>(handle);
    if (service && !service->Allows(right)) {
        Fail(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return service;
}

// A name is also that of a file: "." and ".." are none either.
bool CheckName(LPCWSTR name) {
    if (name == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const std::u16string_view text = name;
    const bool isName = !text.empty() && text.size() <= kLongestName &&
                        text.find_first_of(u"/\\") == text.npos && text != u"." && text != u"..";
    return isName || Fail(ERROR_INVALID_NAME);
}

// Whether the calling thread's account may have the rights.
bool CheckServiceRights(DWORD rights) {
    if ((rights & ~kKnownServiceRights) != 0) return Fail(ERROR_NOT_SUPPORTED);
    return (rights & ~static_cast<DWORD>(SERVICE_QUERY_STATUS)) == 0 || IsUserAnAdmin() ||
           Fail(ERROR_ACCESS_DENIED);
}

std::u16string KeyOfService(LPCWSTR name) {
    return std::u16string(kServicesKey) + name;
}

bool IsRegistered(LPCWSTR name) {
    HKEY key = nullptr;
    const LSTATUS opened =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, KeyOfService(name).c_str(), 0, KEY_QUERY_VALUE, &key);
    if (opened == ERROR_SUCCESS) {
        RegCloseKey(key);
        return true;
    }
    const bool isMissing = opened == ERROR_FILE_NOT_FOUND;
    return Fail(isMissing ? ERROR_SERVICE_DOES_NOT_EXIST : static_cast<DWORD>(opened));
}

struct ServiceRecord {
    std::u16string displayName;
    std::u16string program;
    DWORD type;
    DWORD start;
    DWORD errorControl;
};

// The values of a service's key; the code of the first one that could not be written.
LSTATUS WriteRecord(HKEY key, const ServiceRecord& record) {
    const auto write = [key](LPCWSTR name, DWORD type, const void* data, std::size_t size) {
        return RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data),
                              static_cast<DWORD>(size));
    };
    const auto writeNumber = [&](LPCWSTR name, DWORD number) {
        return write(name, REG_DWORD, &number, sizeof number);
    };
    const auto writeText = [&](LPCWSTR name, DWORD type, const std::u16string& text) {
        return write(name, type, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    };
    LSTATUS result = writeNumber(u"Type", record.type);
    if (result == ERROR_SUCCESS) result = writeNumber(u"Start", record.start);
    if (result == ERROR_SUCCESS) result = writeNumber(u"ErrorControl", record.errorControl);
    if (result == ERROR_SUCCESS) result = writeText(u"ImagePath", REG_EXPAND_SZ, record.program);
    if (result == ERROR_SUCCESS) result = writeText(u"DisplayName", REG_SZ, record.displayName);
    return result;
}

bool Register(LPCWSTR name, const ServiceRecord& record) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    LSTATUS result =
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, KeyOfService(name).c_str(), 0, nullptr,
                        REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr, &key, &disposition);
    if (result != ERROR_SUCCESS) return Fail(static_cast<DWORD>(result));
    const bool isNew = disposition == REG_CREATED_NEW_KEY;
    if (isNew) result = WriteRecord(key, record);
    RegCloseKey(key);
    if (!isNew) return Fail(ERROR_SERVICE_EXISTS);
    return result == ERROR_SUCCESS || Fail(static_cast<DWORD>(result));
}

void FillStatus(const Service& service, LPSERVICE_STATUS status) {
    const bool runs = service.Runs();
    *status = {};
    status->dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status->dwCurrentState = runs ? SERVICE_RUNNING : SERVICE_STOPPED;
    status->dwControlsAccepted = runs ? SERVICE_ACCEPT_STOP : 0;
}

}  // namespace
}  // namespace platform

using namespace platform;

extern "C" {

SC_HANDLE WINAPI OpenSCManagerW(LPCWSTR lpMachineName, LPCWSTR lpDatabaseName,
                                DWORD dwDesiredAccess) {
    DWORD error = ERROR_SUCCESS;
    if (lpMachineName != nullptr || lpDatabaseName != nullptr ||
        (dwDesiredAccess & ~kKnownManagerRights) != 0) {
        error = ERROR_NOT_SUPPORTED;
    } else if ((dwDesiredAccess & SC_MANAGER_CREATE_SERVICE) != 0 && !IsUserAnAdmin()) {
        error = ERROR_ACCESS_DENIED;
    }
    if (error != ERROR_SUCCESS) {
        Fail(error);
        return nullptr;
    }
    // The right to connect comes with every handle.
    return OpenServiceHandle(
        std::make_shared<ServiceManager>(dwDesiredAccess | SC_MANAGER_CONNECT));
}

SC_HANDLE WINAPI OpenServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, DWORD dwDesiredAccess) {
    if (!ObjectOf<ServiceManager>(hSCManager) || !CheckName(lpServiceName) ||
        !IsRegistered(lpServiceName) || !CheckServiceRights(dwDesiredAccess)) {
        return nullptr;
    }
    return OpenServiceHandle(std::make_shared<Service>(lpServiceName, dwDesiredAccess));
}

SC_HANDLE WINAPI CreateServiceW(SC_HANDLE hSCManager, LPCWSTR lpServiceName, LPCWSTR lpDisplayName,
                                DWORD dwDesiredAccess, DWORD dwServiceType, DWORD dwStartType,
                                DWORD dwErrorControl, LPCWSTR lpBinaryPathName,
                                LPCWSTR lpLoadOrderGroup, LPDWORD lpdwTagId, LPCWSTR lpDependencies,
                                LPCWSTR lpServiceStartName, LPCWSTR lpPassword) {
    const auto manager = ObjectOf<ServiceManager>(hSCManager);
    if (!manager || !CheckName(lpServiceName)) return nullptr;
    DWORD error = ERROR_SUCCESS;
    if (lpBinaryPathName == nullptr) {
        error = ERROR_INVALID_PARAMETER;
    } else if (lpLoadOrderGroup != nullptr || lpdwTagId != nullptr || lpDependencies != nullptr ||
               lpServiceStartName != nullptr || lpPassword != nullptr ||
               dwServiceType != SERVICE_WIN32_OWN_PROCESS) {
        error = ERROR_NOT_SUPPORTED;
    } else if ((manager->granted & SC_MANAGER_CREATE_SERVICE) == 0) {
        error = ERROR_ACCESS_DENIED;
    }
    if (error != ERROR_SUCCESS) {
        Fail(error);
        return nullptr;
    }
    const ServiceRecord record = {lpDisplayName == nullptr ? lpServiceName : lpDisplayName,
                                  lpBinaryPathName, dwServiceType, dwStartType, dwErrorControl};
    if (!CheckServiceRights(dwDesiredAccess) || !Register(lpServiceName, record)) return nullptr;
    return OpenServiceHandle(std::make_shared<Service>(lpServiceName, dwDesiredAccess));
}

BOOL WINAPI CloseServiceHandle(SC_HANDLE hSCObject) {
    return ReleaseHandle(hSCObject) ? TRUE : FALSE;
}

BOOL WINAPI QueryServiceStatus(SC_HANDLE hService, LPSERVICE_STATUS lpServiceStatus) {
    const auto service = ServiceWithRight(hService, SERVICE_QUERY_STATUS);
    if (!service) return FALSE;
    FillStatus(*service, lpServiceStatus);
    return TRUE;
}

BOOL WINAPI StartServiceW(SC_HANDLE hService, DWORD dwNumServiceArgs,
                          LPCWSTR* /*lpServiceArgVectors*/) {
    const auto service = ServiceWithRight(hService, SERVICE_START);
    if (!service) return FALSE;
    return dwNumServiceArgs == 0 ? service->Start() : Fail(ERROR_NOT_SUPPORTED);
}

BOOL WINAPI ControlService(SC_HANDLE hService, DWORD dwControl, LPSERVICE_STATUS lpServiceStatus) {
    if (dwControl != SERVICE_CONTROL_STOP) return Fail(ERROR_INVALID_SERVICE_CONTROL);
    const auto service = ServiceWithRight(hService, SERVICE_STOP);
    if (!service || !service->Stop()) return FALSE;
    FillStatus(*service, lpServiceStatus);
    return TRUE;
}
}
