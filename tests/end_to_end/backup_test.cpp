// Backups, looked at from outside: exit codes, bytes on standard output, the file, the log.
#include <regex>
#include <set>
#include <utility>

#include "tests/end_to_end/client_machine.h"
#include "tests/support/accounts.h"
#include "tests/support/file_facts.h"

namespace {

constexpr const WCHAR* kSavingFinished =
    TEXT("Global\\_SNCONFIG_EVT_SAVING_FINISH_{F55B18CA-E475-4049-95FC-0D9889C1CD1E}");

constexpr unsigned kUser = 54321;

using BackupTest = ClientMachine;

TEST_F(BackupTest, HoldsHeaderVerifierAndEveryModule) {
    ExpectRun(Backup(), 0, "");
    const std::string content = BackupContent();
    const std::regex header(
        R"(<\?xml version="1\.0" encoding="UTF-8" \?>\n)"
        R"(<sentrel_configuration generatedby="SNT-7\.4\.3\.1790" policy="" authentication="[0-9A-F]{58}">\n)"
        R"(    <sentrel_version>7\.4\.3\.1790</sentrel_version>\n    <version>7\.4\.3</version>\n)"
        R"(    <exported_by_version>7\.4\.3\.1790</exported_by_version>\n)"
        R"(    <date>20\d\d/\d\d/\d\d</date>\n    <partial_configuration>0</partial_configuration>\n)"
        R"(    <os_version>windows</os_version>\n    <os_architecture>x64</os_architecture>\n)"
        R"(    <system>\n)");
    EXPECT_TRUE(std::regex_search(content, header, std::regex_constants::match_continuous))
        << content;
    std::size_t at = 0;
    for (const char* module :
         {"system", "vpn", "av", "ssoma", "wanopt", "webfilter", "firewall", "vuln", "sandbox",
          "ae", "usbmon", "cloudscan", "ac", "rs", "ztna", "pam", "esnac"}) {
        at = content.find(std::string("\n    <") + module, at);
        ASSERT_NE(at, std::string::npos) << module;
    }
    EXPECT_EQ(content.find("Kranich"), std::string::npos);
    EXPECT_NE(content.find("EncX "), std::string::npos);
    EXPECT_NE(content.find("<!--"), std::string::npos);
    EXPECT_TRUE(OnlyOwnerMayUse(file_));
    EXPECT_EQ(Log(), "");

    ExpectRun(Backup({"-o", "export-no-comments", "-m", "av vpn"}), 0, "");
    const std::string stripped = BackupContent();
    EXPECT_EQ(stripped.find("<!--"), std::string::npos);
    EXPECT_LT(stripped.find("<av>"), stripped.find("<vpn>"));
    EXPECT_NE(Log().find("Comments removed from "), std::string::npos);
}

TEST_F(BackupTest, RefusesWithTheDocumentedTexts) {
    ExpectRun(Tool({"-f", file_.string(), "-O", "plain.xml"}), 0, "Backup requires a password");
    ExpectRun(Tool({"-f", file_.string(), "-p", "short"}), 1, "Password must be >=8 characters.\n");
    SetRaw(HKEY_LOCAL_MACHINE, kUiKey, TEXT("disable_backup"), REG_DWORD, {1, 0, 0, 0});
    ExpectRun(Backup(), 0, "Backup is disabled");
    ExpectRun(Backup({"-o", "export-no-comments"}), 0, "Backup is disabled");
    EXPECT_FALSE(std::filesystem::exists(file_));
    EXPECT_NE(Log().find("Backup is disabled"), std::string::npos);
    EXPECT_NE(Log().find("Backup requires a password"), std::string::npos);
    if (TargetHas(kOtherAccounts)) {
        ExpectRun(RunProgram("SNConfig", BackupArguments(), As(kUser)), 0, "Backup is disabled");
    }
    ExpectRun(Backup({"-o", "export-install"}), 0, "");
    EXPECT_TRUE(BackupContent().ends_with("</sentrel_configuration>\n"));
    EXPECT_EQ(BackupContent().find("<!--"), std::string::npos);
}

// At any time one of the two places has another date than Greenwich.
TEST_F(BackupTest, TellsTheDateOfGreenwich) {
    std::set<std::string> dates;
    for (const char* zone : {"East-14", "West+12", "UTC"}) {
        const ProcessOptions there = {{{"TZ", zone}}, {}, {}};
        ExpectRun(RunProgram("SNConfig", BackupArguments({"-m", "av"}), there), 0, "");
        const std::string content = BackupContent();
        dates.insert(content.substr(content.find("<date>"), 16));
    }
    EXPECT_EQ(dates.size(), 1U) << "or midnight came in between";
}

TEST_F(BackupTest, ShowsItsUsage) {
    const ProcessResult usage = Tool({"-h"});
    EXPECT_EQ(usage.exitCode, 0);
    EXPECT_TRUE(usage.output.starts_with("usage:\t") &&
                usage.output.ends_with("  -h, -? this usage text\n\n"));
    EXPECT_EQ(std::count(usage.output.begin(), usage.output.end(), '\n'), 36);
    ExpectRun(Tool({"--VPNONLY"}), 0, usage.output);
    ExpectRun(Tool({"-p", "eight888", "-h", "-q"}), 0, usage.output);
    EXPECT_EQ(Log(), "") << "no log is opened";
}

TEST_F(BackupTest, SurvivesHostileArguments) {
    ExpectRun(Tool({}), 0, "Backup requires a password");
    const std::string longText(8'000, 'x');  // four of which fill a command line
    ExpectRun(Tool({"-f", longText, "-p", longText, "-m", longText, "-i", longText}), 0,
              "Access denied.");
    EXPECT_EQ(Tool({"-p", "eight888", "-f", ""}).output, "Access denied.");
    SKIP_WITHOUT(kBytesAsNames);
    ExpectRun(Backup({"-m", "\xFF\xFE", "-v", "\x80", "-i", "99999999999999"}), 0, "");
    file_ = ScratchFolder() / "\xFF name";
    ExpectRun(Backup(), 0, "");
    EXPECT_TRUE(std::filesystem::exists(file_)) << "a name that is no UTF-8 is a name all the same";
}

TEST_F(BackupTest, TellsOfADestinationThatCannotBe) {
    file_ = ScratchFolder() / "no folder" / "backup.xml";
    ExpectRun(Backup(), 0, "Access denied.");
    file_ = ScratchFolder();
    ExpectRun(Backup(), 0, "Access denied.");
}

TEST_F(BackupTest, LeavesAReadOnlyDestinationAlone) {
    SKIP_WITHOUT(kFilePermissions);
    file_ = ScratchFolder() / "read-only.xml";
    WriteWholeFile(file_, "old");
    std::filesystem::permissions(file_, std::filesystem::perms::owner_read);
    ExpectRun(Backup(), 0, "Access denied.");
    EXPECT_EQ(ReadWholeFile(file_), "old");
}

TEST_F(BackupTest, TellsOfAFullDestination) {
    SKIP_WITHOUT(kFullDisk);
    file_ = "/dev/full";
    ExpectRun(Backup(), 0, "Access denied.");
}

TEST_F(BackupTest, TellsOfPluginsOnlyWhatIsDocumented) {
    const auto client = ScratchFolder() / "client";
    std::filesystem::create_directory(client);
    SetText("", "InstallDir", client.string());
    ExpectRun(Backup({"-d", "-m", "av"}), 0,
              "Loading library: " + (client / "cfmav").string() + "\nLoad library: cfmav (126)\n");
    EXPECT_EQ(Log(), "");

    InstallLibrary("probe_plugin", client, "cfmav");
    InstallLibrary("probe_plugin_without_import", client, "cfmwf");
    WriteWholeFile(client / "fail", "");
    ExpectRun(Backup({"-m", "av", "-u"}), 0, "Access denied.");
    EXPECT_NE(Log().find("Error in exporting module: cfmav"), std::string::npos);
    EXPECT_NE(BackupContent().find("<os_architecture>"), std::string::npos)
        << "the file is written";
    EXPECT_EQ(BackupContent().find("user_configuration"), std::string::npos);

    BackgroundProcess gui("sngui", {"1"});
    ASSERT_TRUE(gui.WaitForOutput("listening"));
    ExpectRun(Backup({"-o", "import", "-m", "av webfilter", "-i", "1"}), 0, "");
    EXPECT_NE(Log().find("Error in importing module: cfmav"), std::string::npos);
    EXPECT_NE(Log().find("GetProcAddress \"ImportFromXml\" from cfmwf failed (127)"),
              std::string::npos);
    EXPECT_TRUE(gui.WaitForOutput("\ncode 1 0"));
}

TEST_F(BackupTest, WaitsForTheConfigurationMutexAndAnnouncesTheEnd) {
    const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, kConfigurationMutex));
    const UniqueHandle finished(CreateEventW(nullptr, TRUE, FALSE, kSavingFinished));
    BackgroundProcess first("SNConfig", BackupArguments());
    BackgroundProcess second("SNConfig", {"-h"});
    EXPECT_EQ(WaitForSingleObject(finished.get(), 500), DWORD{WAIT_TIMEOUT});
    EXPECT_TRUE(first.IsRunning() && second.IsRunning()) << "it blocks before it parses";
    EXPECT_FALSE(std::filesystem::exists(file_));
    ASSERT_TRUE(ReleaseMutex(mutex.get()));
    EXPECT_EQ(first.Wait().exitCode, 0);
    EXPECT_EQ(second.Wait().exitCode, 0);
    EXPECT_EQ(WaitForSingleObject(finished.get(), 0), DWORD{WAIT_OBJECT_0});
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), DWORD{WAIT_OBJECT_0}) << "given back";
    ReleaseMutex(mutex.get());
}

TEST_F(BackupTest, CarriesTheSessionUsersSettingsAndTellsTheUserInterface) {
    SetRaw(HKEY_CURRENT_USER, kUiKey, TEXT("theme"), REG_DWORD, {2, 0, 0, 0});
    SetRaw(HKEY_LOCAL_MACHINE, kUiKey, TEXT("LCID"), REG_DWORD, {0x07, 0x04, 0, 0});
    BackgroundProcess gui("sngui", {"1"});
    ASSERT_TRUE(gui.WaitForOutput("listening"));
    const ULONGLONG start = GetTickCount64();
    ExpectRun(Backup({"-u", "-i", "1"}), 0, "");
    EXPECT_GE(GetTickCount64() - start, 1000U) << "the tray gets a second";
    EXPECT_NE(BackupContent().find(R"(<value key="SA_UI" name="theme" type="4" data="2" />)"),
              std::string::npos);
    EXPECT_TRUE(gui.WaitForOutput("code 1640"));
    EXPECT_TRUE(gui.WaitForOutput("tray "));
    ExpectRun(Backup({"-q", "-i", "1"}), 0, "");
    const std::string shown = gui.Output();
    EXPECT_EQ(shown.find("code 1640"), shown.rfind("code 1640")) << "-q is quiet";
    SKIP_WITHOUT(kThreadLanguages);
    EXPECT_TRUE(gui.WaitForOutput("tray Sicherung erfolgreich."));
}

TEST_F(BackupTest, WorksAsTheUserOfTheSession) {
    SKIP_UNLESS_ADMINISTRATOR();
    // Where no sessions are kept, the user's shell tells whom one belongs to.
    const auto explorerOf = [&](const char* name, const char* session, unsigned account) {
        return StartWaitingProgram(ScratchFolder() / name,
                                   {{{"XDG_SESSION_ID", session}}, {}, account});
    };
    const BackgroundProcess others = explorerOf("explorer.exe", "8", kUser + 1);
    const BackgroundProcess users = explorerOf("Explorer.EXE", "7", kUser);
    ExpectRun(Backup({"-m", "av", "-i", "7"}), 0, "");
    EXPECT_EQ(OwnerOf(file_), kUser);
    std::filesystem::remove(file_);

    LogOn(EndpointFolder(), 7, std::to_string(kUser));
    for (const auto& [asWhom, owner] : {std::pair{"-q", kUser},
                                        {"-u", OwnerOf(ScratchFolder())},
                                        {"--NOIMPERSONATEUSER=1", OwnerOf(ScratchFolder())}}) {
        ExpectRun(Backup({asWhom, "-m", "av", "-i", "7"}), 0, "");
        EXPECT_EQ(OwnerOf(file_), owner) << asWhom;
        std::filesystem::remove(file_);
    }
}

TEST_F(BackupTest, TwoAtATimeBothComeOut) {
    BackgroundProcess other("SNConfig", BackupArguments());
    const auto fileOfOther = std::exchange(file_, ScratchFolder() / "2.xml");
    ExpectRun(Backup(), 0, "");
    EXPECT_EQ(other.Wait().exitCode, 0);
    EXPECT_TRUE(BackupContent().ends_with("</sentrel_configuration>\n"));
    EXPECT_TRUE(ReadText(fileOfOther).ends_with("</sentrel_configuration>\n"));
}

}  // namespace
