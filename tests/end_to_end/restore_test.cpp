// Restores, looked at from outside: who may, what comes back, what is left behind.
#include "tests/end_to_end/client_machine.h"

namespace {

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
};

TEST_F(RestoreTest, BringsTheSettingsBack) {
    SetText("SA_AV", "made later", "x");
    BackgroundProcess gui("sngui", {"1"});
    ASSERT_TRUE(gui.WaitForOutput("listening"));
    ExpectRun(Restore({"-i", "1"}), 0, "");
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
    ExpectRun(decrypt(kPassword), 0, "");
    EXPECT_EQ(ReadWholeFile(plain) + "\n", BackupContent());
    EXPECT_TRUE(IsChanged()) << "nothing is imported";
}

}  // namespace
