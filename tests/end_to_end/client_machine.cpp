#include "tests/end_to_end/client_machine.h"

#include "tests/support/registry.h"
#include "tests/support/wide.h"

namespace {

std::basic_string<WCHAR> ProductPath(const std::string& key) {
    return TEXT("software\\Verdane\\Sentrel\\") + std::filesystem::path(key).string<WCHAR>();
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

ProcessResult ClientMachine::Backup(std::vector<std::string> switches) {
    switches.insert(switches.end(), {"-f", file_.string(), "-p", kPassword});
    return Tool(switches);
}

ProcessResult ClientMachine::Restore(std::vector<std::string> switches) {
    switches.insert(switches.end(), {"-o", "import"});
    return Backup(switches);
}

void ClientMachine::Client(const std::vector<std::string>& arguments) {
    const ProcessResult result = RunProgram("snclient", arguments);
    EXPECT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.errors;
}

void ClientMachine::SetText(const std::string& key, const std::string& name,
                            const std::string& text) {
    SetRaw(HKEY_LOCAL_MACHINE, ProductPath(key), Wide(name).c_str(), Wide(text));
}

void ClientMachine::SetNumber(const std::string& key, const std::string& name, DWORD number) {
    SetRaw(HKEY_LOCAL_MACHINE, ProductPath(key), Wide(name).c_str(), REG_DWORD, &number,
           sizeof number);
}

std::string ClientMachine::Text(const std::string& key, const std::string& name) {
    return std::filesystem::path(RawText(HKEY_LOCAL_MACHINE, ProductPath(key), Wide(name).c_str()))
        .string();
}

std::filesystem::path ClientMachine::LogFolder() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(EndpointFolder())) {
        if (entry.path().filename() == "logs") return entry.path();
    }
    return {};
}
