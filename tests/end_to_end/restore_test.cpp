// Restores, looked at from outside: who may, what comes back, what is left behind.
#include <utilsdll.h>

#include "tests/end_to_end/client_machine.h"
#include "tests/support/accounts.h"
#include "tests/support/faults.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned kUser = 54321;

class RestoreTest : public ClientMachine {
  protected:
    RestoreTest() {
        if (!Role().empty()) return;
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
    const UniqueHandle changed(
        CreateEventW(nullptr, FALSE, FALSE, TEXT("Global\\SN_CONFIG_CHANGED")));
    ExpectRun(Restore({"-i", "1"}), 0, "");
    EXPECT_EQ(WaitForSingleObject(changed.get(), 0), WAIT_OBJECT_0) << "the scheduler is told";
    EXPECT_EQ(Profile(), "strict");
    EXPECT_EQ(Text("SA_AV", "made later"), "");
    EXPECT_EQ(Text("SA_VPN\\sslvpn\\options", "dtls"), "yes");
    EXPECT_EQ(Text(kOffice, "password"), "Kranich-7");
    const WString stored = RawText(HKEY_LOCAL_MACHINE, ProductPath(kOffice), TEXT("password"));
    EXPECT_TRUE(stored.starts_with(TEXT("SNP1 ")));
    EXPECT_TRUE(gui.WaitForOutput("tray Restore completed."));
}

// An ordinary user's settings, on a machine that is locked: what is the user's is written as the
// user, everything else as the tool.
TEST_F(RestoreTest, ServesAnOrdinaryUserOnALockedMachine) {
    SKIP_UNLESS_ADMINISTRATOR();
    const auto set = [](DWORD theme, const WCHAR* secret) {
        SetRaw(HKEY_CURRENT_USER, kUiKey, TEXT("theme"), REG_DWORD, &theme, sizeof theme);
        const UniqueRegKey key(reg_openkeyW(HKEY_CURRENT_USER, kUiKey));
        EXPECT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("secret"), secret));
    };
    if (Role() == "before") return set(2, TEXT("M\u00F6we-3"));
    if (Role() == "changed") return set(9, TEXT("other"));
    if (!Role().empty()) {
        CRegistry key(false, true);
        WString secret;
        ASSERT_TRUE(key.OpenKey(kUiKey) && key.GetString(TEXT("secret"), secret));
        EXPECT_EQ(secret, Role() == "restored" ? TEXT("M\u00F6we-3") : TEXT("other"));
        EXPECT_TRUE(RawText(HKEY_CURRENT_USER, kUiKey, TEXT("secret")).starts_with(TEXT("SNP2 ")));
        EXPECT_EQ(RawValue(HKEY_CURRENT_USER, kUiKey, TEXT("theme")).at(0),
                  Role() == "restored" ? 2 : 9);
        return;
    }
    LogOn(EndpointFolder(), 7, std::to_string(kUser));
    SetProfile("strict");
    RunRole("before", As(kUser));
    for (const char* asTool : {"--NOIMPERSONATEUSER=1", "-q"}) {
        fs::remove(file_);
        ExpectRun(Backup({asTool, "-u", "-i", "7"}), 0, "");
        EXPECT_NE(BackupContent().find("name=\"theme\""), std::string::npos) << asTool;
    }
    fs::permissions(file_, fs::perms(0644));  // a backup with -u is the tool's own
    RunRole("changed", As(kUser));
    const std::string copy = (ScratchFolder() / "copy").string();
    fs::copy_file(file_, copy);
    ExpectRun(Tool({"-o", "import_settings", "-f", copy, "-t", kPassword, "-i", "7"}), 0, "");
    RunRole("left alone", As(kUser));
    SetProfile("lax");
    Client({"set-lock-password", "open sesame"});
    Client({"lock"});
    ExpectRun(Restore({"-k", "open sesame", "-i", "7"}), 0, "");
    EXPECT_EQ(Profile(), "strict");
    EXPECT_TRUE(sec_is_registry_locked());
    EXPECT_EQ(Log().find(" ERROR "), std::string::npos) << Log();
    RunRole("restored", As(kUser));
}

TEST_F(RestoreTest, ReadsTheFileAsTheUserOfTheSession) {
    SKIP_UNLESS_ADMINISTRATOR();
    LogOn(EndpointFolder(), 7, std::to_string(kUser));
    fs::permissions(file_, fs::perms(0600));
    ExpectRun(Restore({"-i", "7"}), 5, "");
    EXPECT_EQ(Profile(), "lax");
    const std::string plain = (ScratchFolder() / "plain").string();
    ExpectRun(Backup({"--NOIMPERSONATEUSER=1", "-i", "7", "-O", plain}), 0, "");
    EXPECT_EQ(ReadText(plain), BackupContent());
    ExpectRun(Restore({"--NOIMPERSONATEUSER=1", "-i", "7"}), 0, "");
    EXPECT_EQ(Profile(), "strict");
    // The user's is the copy alone: what is protected for the tool's own account opens.
    SetProfile("lax");
    Client({"protect-file", file_.string(), "user"});
    fs::permissions(file_, fs::perms(0444));
    ExpectRun(Tool({"-o", "import", "-m", "av", "-f", file_.string(), "-i", "7"}), 0, "");
    EXPECT_EQ(Profile(), "strict");
}

TEST_F(RestoreTest, VpnOnlyTouchesNothingButConnections) {
    const std::vector<std::string> arguments =
        BackupArguments({"--VPNONLY", "yes", "-m", "av", "-o", "import"});
    const auto expectNothingElse = [] {
        EXPECT_EQ(Text("SA_VPN\\sslvpn\\options", "dtls"), "no");
        EXPECT_EQ(Profile(), "lax");
    };
    EXPECT_EQ(Tool(arguments).exitCode, 0);
    EXPECT_EQ(Text(kOffice, "server"), "vpn.example.net");
    expectNothingElse();
    // A file that cannot be read, or that is not reduced for want of room, is not imported at all.
    WriteWholeFile(ScratchFolder() / "broken", "<?xml version=\"1.0\"?><sentrel_configuration>");
    ExpectRun(Tool({"--VPNONLY=1", "-o", "import", "-f", (ScratchFolder() / "broken").string()}), 0,
              "");
    EXPECT_NE(Log().find("Cannot open file "), std::string::npos);
    EXPECT_EQ(Log().find("Failed to process the file "), std::string::npos);
    SKIP_WITHOUT(kFaults);
    const std::vector<std::string> calls =
        RunWithFault(Fault::kDiskFull, SIZE_MAX, "SNConfig", arguments).calls;
    for (std::size_t at = 0; at < calls.size(); ++at) {
        if (calls[at] != "write" && calls[at] != "writev") continue;
        EXPECT_LE(RunWithFault(Fault::kDiskFull, at, "SNConfig", arguments).result.exitCode, 5);
        expectNothingElse();
    }
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
    EXPECT_EQ(ReadText(plain) + "\n", BackupContent());
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
