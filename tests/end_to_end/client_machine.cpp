#include "tests/end_to_end/client_machine.h"

#include "tests/support/wide.h"

namespace {

using WideText = std::basic_string<WCHAR>;

WideText ProductPath(const std::string& key) {
    return TEXT("software\\Verdane\\Sentrel\\") +
           std::filesystem::path(key).generic_string<WCHAR>();
}

void SetValue(const std::string& key, const std::string& name, DWORD type, const void* data,
              std::size_t size) {
    HKEY opened = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, ProductPath(key).c_str(), 0, nullptr,
                              REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, &opened, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExW(opened, Wide(name).c_str(), 0, type, static_cast<const BYTE*>(data),
                             static_cast<DWORD>(size)),
              ERROR_SUCCESS);
    RegCloseKey(opened);
}

}  // namespace

ClientMachine::ClientMachine() {
    SetNumber("SA_AV", "scan_level", 3);
    SetText("SA_AV", "profile", "strict");
    SetText("SA_VPN\\sslvpn\\connections\\Office", "server", "vpn.example.net");
    SetText("SA_VPN\\sslvpn\\connections\\Office", "password", "Kranich-7");
    SetText("SA_VPN\\sslvpn\\options", "dtls", "yes");
    Client({"protect-value",
            "HKLM\\software\\Verdane\\Sentrel\\SA_VPN\\sslvpn\\connections\\Office", "password"});
}

ProcessResult ClientMachine::Backup(const std::vector<std::string>& extra,
                                    const ProcessOptions& options) {
    std::vector<std::string> arguments = {"-f", file_.string(), "-p", kPassword};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    return Tool(arguments, options);
}

ProcessResult ClientMachine::Restore(const std::vector<std::string>& extra,
                                     const ProcessOptions& options) {
    std::vector<std::string> arguments = {"-o", "import", "-f", file_.string(), "-p", kPassword};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    return Tool(arguments, options);
}

void ClientMachine::Client(const std::vector<std::string>& arguments) {
    const ProcessResult result = RunProgram("snclient", arguments);
    EXPECT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.errors;
}

void ClientMachine::SetText(const std::string& key, const std::string& name,
                            const std::string& text) {
    const WideText wide = Wide(text);
    SetValue(key, name, REG_SZ, wide.c_str(), (wide.size() + 1) * sizeof(WCHAR));
}

void ClientMachine::SetNumber(const std::string& key, const std::string& name, DWORD number) {
    SetValue(key, name, REG_DWORD, &number, sizeof number);
}

std::string ClientMachine::Text(const std::string& key, const std::string& name) {
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, ProductPath(key).c_str(), 0, KEY_READ, &opened) !=
        ERROR_SUCCESS) {
        return {};
    }
    WCHAR text[1024] = {};
    DWORD size = sizeof text - sizeof(WCHAR);
    RegQueryValueExW(opened, Wide(name).c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(text),
                     &size);
    RegCloseKey(opened);
    return std::filesystem::path(text).string();
}

std::string ClientMachine::Log() const {
    std::string all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(EndpointFolder())) {
        if (entry.path().filename() == "SA_CONFIGD.log") all += ReadWholeFile(entry.path());
    }
    return all;
}
