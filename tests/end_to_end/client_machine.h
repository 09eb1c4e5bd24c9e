// A machine with an installed client, and the configuration tool run on it from outside.
#pragma once

#include <product_registry.h>

#include "registry/registry.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"
#include "tests/support/wide.h"

class ClientMachine : public MachineTest {
  protected:
    // Makes the machine's registry and a few settings: two features, one protected value. A part
    // that is played on the machine finds them.
    ClientMachine() {
        if (!Role().empty()) return;
        SetRaw(HKEY_LOCAL_MACHINE, ProductPath("SA_AV"), TEXT("scan_level"), REG_DWORD,
               {3, 0, 0, 0});
        SetProfile("strict");
        SetText(kOffice, "server", "vpn.example.net");
        SetText(kOffice, "password", "Kranich-7");
        SetText("SA_VPN\\sslvpn\\options", "dtls", "yes");
        Client({"protect-value", "HKLM\\" SENTREL_PRODUCT_KEY "\\" + kOffice, "password"});
    }
    // Whatever was run: no copy of the configuration stays.
    ~ClientMachine() override { EXPECT_TRUE(!Role().empty() || FilesInTemporaryFolder().empty()); }

    static constexpr const char* kPassword = "pass phrase";
    static inline const std::string kOffice = "SA_VPN\\sslvpn\\connections\\Office";
    static constexpr const WCHAR* kConfigurationMutex =
        TEXT("Global\\SN_{2C264CC9-7890-4A5D-A626-F868BBFD200F}");
    // Objects that exist while the client's file protection is bypassed.
    static constexpr const char* kBypasses[] = {"SN_BYPASS_FSFILTER", "SN_BYPASS_GUARDLET"};
    static bool Exists(const std::string& object) {
        const WString name = Wide("Global\\" + object);
        return static_cast<bool>(UniqueHandle(OpenEventW(SYNCHRONIZE, FALSE, name.c_str())));
    }

    static ProcessResult Tool(const std::vector<std::string>& arguments) {
        return RunProgram("SNConfig", arguments);
    }
    // Of a backup with the password to the file; other switches go before.
    std::vector<std::string> BackupArguments(std::vector<std::string> switches = {}) const {
        switches.insert(switches.end(), {"-f", file_.string(), "-p", kPassword});
        return switches;
    }
    ProcessResult Backup(const std::vector<std::string>& switches = {}) const {
        return Tool(BackupArguments(switches));
    }
    // A restore with the password from the file.
    ProcessResult Restore(std::vector<std::string> switches = {}) const {
        switches.insert(switches.end(), {"-o", "import"});
        return Backup(switches);
    }
    // How a run is to end and what it is to say.
    static void ExpectRun(const ProcessResult& run, int exitCode, const std::string& output) {
        EXPECT_EQ(run.exitCode, exitCode);
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
    }
    // The client's administration tool; must succeed.
    static void Client(const std::vector<std::string>& arguments) {
        const ProcessResult result = RunProgram("snclient", arguments);
        EXPECT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.errors;
    }

    // Values below the product key of HKEY_LOCAL_MACHINE.
    static WString ProductPath(const std::string& key) {
        return kProductKey + (TEXT("\\") + Wide(key));
    }
    static void SetText(const std::string& key, const std::string& name, const std::string& text) {
        SetRaw(HKEY_LOCAL_MACHINE, ProductPath(key), Wide(name).c_str(), Wide(text));
    }
    // The plain text, also of a protected value; empty when missing.
    static std::string Text(const std::string& key, const std::string& name) {
        CRegistry registry(true, true);
        WString text;
        if (registry.OpenKey(ProductPath(key))) registry.GetString(Wide(name), text);
        return std::filesystem::path(text).string();
    }
    // The setting by which most tests tell whether anything was restored.
    static std::string Profile() { return Text("SA_AV", "profile"); }
    static void SetProfile(const std::string& text) { SetText("SA_AV", "profile", text); }

    // Where the client keeps its logs; empty while it has none.
    std::filesystem::path LogFolder() const {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(EndpointFolder())) {
            if (entry.path().filename() == "logs") return entry.path();
        }
        return {};
    }
    std::string Log() const { return ReadWholeFile(LogFolder() / "SA_CONFIGD.log"); }
    std::string BackupContent() const { return ReadText(file_); }

    std::filesystem::path file_ = ScratchFolder() / "backup.xml";
};
