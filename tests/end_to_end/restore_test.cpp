// Restores, looked at from outside: who may, what comes back, what is left behind.
#include "tests/end_to_end/client_machine.h"

namespace {

class RestoreTest : public ClientMachine {
  protected:
    RestoreTest() {
        EXPECT_EQ(Backup().exitCode, 0);
        SetProfile("lax");
        SetText(kOffice, "server", "elsewhere");
        SetText("SA_VPN\\sslvpn\\options", "dtls", "no");
    }
};

TEST_F(RestoreTest, BringsTheSettingsBack) {
    SetText("SA_AV", "made later", "x");
    SetText(kOffice, "password", "Taube-8");
    BackgroundProcess gui("sngui", {"1"});
    ASSERT_TRUE(gui.WaitForOutput("listening"));
    ExpectRun(Restore({"-i", "1"}), 0, "");
    EXPECT_EQ(Profile(), "strict");
    EXPECT_EQ(Text("SA_AV", "made later"), "");
    EXPECT_EQ(Text("SA_VPN\\sslvpn\\options", "dtls"), "yes");
    EXPECT_EQ(Text(kOffice, "password"), "Kranich-7");
    const WString stored = RawText(HKEY_LOCAL_MACHINE, ProductPath(kOffice), TEXT("password"));
    EXPECT_TRUE(stored.starts_with(TEXT("SNP1 ")));
    EXPECT_TRUE(gui.WaitForOutput("tray Restore completed."));
}

TEST_F(RestoreTest, VpnOnlyTouchesNothingButConnections) {
    EXPECT_EQ(Restore({"--VPNONLY", "yes", "-m", "av"}).exitCode, 0);
    EXPECT_EQ(Text(kOffice, "server"), "vpn.example.net");
    EXPECT_EQ(Text("SA_VPN\\sslvpn\\options", "dtls"), "no");
    EXPECT_EQ(Profile(), "lax");
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
    EXPECT_EQ(Profile(), "lax") << "nothing is imported";
}

TEST_F(RestoreTest, FoldersAndFilesMayHaveAnyName) {
    namespace fs = std::filesystem;
    const fs::path folder = ScratchFolder() / TEXT("\u0161 \u0142 \u0416 \u65E5\u672C");
    const fs::path file = folder / TEXT("\u0161.xml");
    fs::create_directory(folder);
    ProcessOptions options;
    for (const char* name : {"TMPDIR", "TMP", "TEMP"}) {
        options.environment.emplace_back(name, WideToUtf8(Wide(folder)));
    }
    const auto run = [&](const std::string& operation) {
        ExpectRun(
            RunProgram("SNConfig", {"-o", operation, "-f", WideToUtf8(Wide(file)), "-p", kPassword},
                       options),
            0, "");
    };
    run("export");
    SetProfile("other");
    run("import");
    EXPECT_EQ(Profile(), "lax");
    const std::string whole = ReadWholeFile(file);
    WriteWholeFile(file, whole + "<!--" + std::string(1000, 'x') + "-->");
    run("import_settings");
    EXPECT_LT(ReadWholeFile(file).size(), whole.size()) << "without its comments, and cut";
}

}  // namespace
