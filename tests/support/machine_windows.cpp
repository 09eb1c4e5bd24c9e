#include <windows.h>

#include <stdexcept>

#include "common/handles.h"
#include "common/text.h"
#include "tests/support/machine_port.h"

namespace fs = std::filesystem;

namespace {

// What tests write to.
const std::pair<HKEY, const WCHAR*> kKeys[] = {
    {HKEY_LOCAL_MACHINE, TEXT("Software\\Verdane")},
    {HKEY_LOCAL_MACHINE, TEXT("Software\\Other")},
    {HKEY_CURRENT_USER, TEXT("Software\\Verdane")},
    {HKEY_CURRENT_USER, TEXT("Software\\Other")},
    {HKEY_CURRENT_USER, TEXT("top")},
    {HKEY_LOCAL_MACHINE, TEXT("Software\\Classes\\Installer\\Products")},
    {HKEY_LOCAL_MACHINE, TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\Installer")},
};
const WCHAR* const kServices[] = {TEXT("SA_Scheduler"), TEXT("SA_Other")};

}  // namespace

// Only on a machine that is there for nothing else, as script/under-wine says of its own.
void MakeFreshMachine() {
    if (ReadVariable("SENTREL_SPARE_MACHINE").empty()) {
        throw std::runtime_error("these tests change the machine");
    }
    for (const auto& [hive, path] : kKeys) RegDeleteTreeW(hive, path);
    const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    for (const WCHAR* name : kServices) {
        SERVICE_STATUS status{};
        const UniqueServiceHandle service(OpenServiceW(manager.get(), name, SERVICE_STOP | DELETE));
        ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
        DeleteService(service.get());
    }
}

// The folder of all programs' data, below which the client has its own.
void NameEndpoint(const fs::path& endpoint) {
    const std::wstring folder = fs::path(endpoint).make_preferred();
    RegSetKeyValueW(HKEY_LOCAL_MACHINE,
                    TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\")
                        TEXT("User Shell Folders"),
                    TEXT("Common AppData"), REG_SZ, folder.c_str(),
                    static_cast<DWORD>((folder.size() + 1) * sizeof(WCHAR)));
}

void LinkFile(const fs::path& file, const fs::path& name) {
    // What this process has loaded cannot be removed, by any of its names.
    std::error_code error;
    if (GetModuleHandleW(file.filename().c_str()) == nullptr) {
        fs::create_hard_link(file, name, error);
        if (!error) return;  // else the other disk
    }
    fs::copy_file(file, name);
}

void SetVariable(const std::string& name, const std::string& value) {
    _wputenv_s(Utf8ToWide(name).c_str(), Utf8ToWide(value).c_str());
}

std::string ReadVariable(const std::string& name) {
    const WCHAR* const value = _wgetenv(Utf8ToWide(name).c_str());
    return value == nullptr ? "" : WideToUtf8(value);
}
