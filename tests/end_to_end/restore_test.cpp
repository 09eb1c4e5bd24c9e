// Restores, looked at from outside: who may, what comes back, what is left behind.
#include "tests/end_to_end/client_machine.h"

namespace {

constexpr const char* kNoRights = "Admin rights are required to import configuration files.\n";
constexpr const char* kManaged = "The configuration settings are protected with registration. \n";
constexpr const char* kLocked =
    "The configuration settings are protected with lock. You must use the -k option to install "
    "configurations.\n";
constexpr const char* kWrongUnlock = "Incorrect password.\n";

class RestoreTest : public ClientMachine {
  protected:
    RestoreTest() {
        EXPECT_EQ(Backup().exitCode, 0);
        ChangeSettings();
    }
    ~RestoreTest() override { EXPECT_TRUE(FilesInTemporaryFolder().empty()); }

    static void ChangeSettings() {
        SetText("SA_AV", "profile", "lax");
        SetText("SA_VPN\\sslvpn\\connections\\Office", "server", "elsewhere");
        SetText("SA_VPN\\sslvpn\\options", "dtls", "no");
    }
    static bool IsChanged() { return Text("SA_AV", "profile") == "lax"; }
    static bool IsLocked() {
        return RunProgram("snclient", {"status"}).output.find("registry locked: yes") !=
               std::string::npos;
    }
};

TEST_F(RestoreTest, BringsTheSettingsBack) {
    SetText("SA_AV", "made later", "x");
    BackgroundProcess gui("sngui", {"1"});
    ASSERT_TRUE(gui.WaitForOutput("listening"));
    const ProcessResult restore = Restore({"-i", "1"});
    EXPECT_EQ(restore.exitCode, 0);
    EXPECT_EQ(restore.output, "");
    EXPECT_EQ(Text("SA_AV", "profile"), "strict");
    EXPECT_EQ(Text("SA_AV", "made later"), "");
    EXPECT_EQ(Text("SA_VPN\\sslvpn\\options", "dtls"), "yes");
    EXPECT_TRUE(Text("SA_VPN\\sslvpn\\connections\\Office", "password").starts_with("SNP1 "));
    EXPECT_TRUE(gui.WaitForOutput("tray Restore completed."));

    // The protected value came back as it was: another backup carries the same.
    file_ = ScratchFolder() / "again.xml";
    EXPECT_EQ(Backup().exitCode, 0);
    SetText("SA_VPN\\sslvpn\\connections\\Office", "password", "");
    EXPECT_EQ(Restore().exitCode, 0);
    EXPECT_TRUE(Text("SA_VPN\\sslvpn\\connections\\Office", "password").starts_with("SNP1 "));
}

TEST_F(RestoreTest, VpnOnlyTouchesNothingButConnections) {
    EXPECT_EQ(Restore({"--VPNONLY", "yes", "-m", "av"}).exitCode, 0);
    EXPECT_EQ(Text("SA_VPN\\sslvpn\\connections\\Office", "server"), "vpn.example.net");
    EXPECT_EQ(Text("SA_VPN\\sslvpn\\options", "dtls"), "no");
    EXPECT_TRUE(IsChanged());
}

TEST_F(RestoreTest, AsksForTheUnlockPassword) {
    Client({"set-lock-password", "open sesame"});
    struct Cell {
        bool locked;
        std::vector<std::string> unlock;
        int exitCode;
        const char* output;
    };
    const Cell cells[] = {
        {true, {}, 2, kLocked},
        {false, {}, 2, kLocked},
        {true, {"-k", "wrong"}, 1, kWrongUnlock},
        {false, {"-k", "wrong"}, 1, kWrongUnlock},
        {true, {"-k", "open sesame"}, 0, ""},
        {false, {"-k", "open sesame"}, 0, ""},
    };
    for (const Cell& cell : cells) {
        ChangeSettings();
        Client({cell.locked ? "lock" : "unlock"});
        if (!cell.locked) ChangeSettings();
        const ProcessResult restore = Restore(cell.unlock);
        EXPECT_EQ(restore.exitCode, cell.exitCode);
        EXPECT_EQ(restore.output, cell.output);
        EXPECT_EQ(IsChanged(), cell.exitCode != 0);
        // An import locks again; a refusal leaves the lock as it was.
        EXPECT_EQ(IsLocked(), cell.exitCode == 0 || cell.locked);
        Client({"unlock"});
    }
}

TEST_F(RestoreTest, CentralManagementRefusesWhileTheSchedulerRuns) {
    Client({"managed", "on"});
    EXPECT_EQ(Restore().exitCode, 0);
    ChangeSettings();
    Client({"service", "SA_Scheduler", "start"});
    const ProcessResult refused = Restore({"-k", "any"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.output, kManaged);
    EXPECT_TRUE(IsChanged());
    EXPECT_EQ(Restore({"-o", "import_settings"}).exitCode, 0) << "not guarded";
    EXPECT_FALSE(IsChanged());
}

TEST_F(RestoreTest, StandardUsersMayBackUpButNotRestore) {
    SKIP_UNLESS_ADMINISTRATOR();
    ProcessOptions asUser;
    asUser.account = Account{54321, 54321};
    const ProcessResult refused = Restore({}, asUser);
    EXPECT_EQ(refused.exitCode, 3);
    EXPECT_EQ(refused.output, kNoRights);
    file_ = ScratchFolder() / "own.xml";
    EXPECT_EQ(Backup({}, asUser).output, "");
    EXPECT_TRUE(std::filesystem::exists(file_));
}

TEST_F(RestoreTest, RefusesFilesThatDoNotOpen) {
    const auto restore = [&](const std::string& password) {
        return Tool({"-o", "import", "-f", file_.string(), "-p", password}).exitCode;
    };
    EXPECT_EQ(restore("wrong phrase"), 5);
    EXPECT_NE(Log().find("Incorrect password."), std::string::npos);
    EXPECT_EQ(Tool({"-o", "import", "-f", file_.string() + ".missing", "-p", kPassword}).exitCode,
              5);
    EXPECT_TRUE(IsChanged());
    WriteWholeFile(file_, "<?xml version=\"1.0\"?><sentrel_configuration><unclosed>");
    EXPECT_EQ(restore(kPassword), 5);
    std::string deep = "<?xml version=\"1.0\"?>";
    for (int i = 0; i < 100'000; ++i) deep += "<e>";
    WriteWholeFile(file_, deep);
    EXPECT_EQ(restore(kPassword), 5);
    EXPECT_TRUE(IsChanged());
}

TEST_F(RestoreTest, DecryptOnlyWritesThePlainFile) {
    const auto encrypted = ScratchFolder() / "backup.enc";
    const auto plain = ScratchFolder() / "plain.xml";
    Client({"encrypt-file", file_.string(), encrypted.string(), kPassword});
    const auto decrypt = [&](const std::string& password) {
        return Tool(
            {"-f", encrypted.string(), "-p", password, "-O", plain.string(), "-o", "import"});
    };
    EXPECT_EQ(decrypt("wrong phrase").exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(plain));
    const ProcessResult done = decrypt(kPassword);
    EXPECT_EQ(done.exitCode, 0);
    EXPECT_EQ(done.output, "");
    EXPECT_EQ(ReadWholeFile(plain) + "\n", BackupContent());
    EXPECT_TRUE(IsChanged()) << "nothing is imported";
}

}  // namespace
