// snclient, each command's effect as another process sees it.
#include <utilsdll.h>
#include <windows.h>

#include <iterator>
#include <vector>

#include "common/secure_text.h"
#include "protect/built_in_secrets.h"
#include "protect/data_protect.h"
#include "protect/encrypted_forms.h"
#include "tests/support/machine.h"

namespace {

namespace fs = std::filesystem;
using Commands = std::vector<std::vector<std::string>>;

class ClientToolTest : public MachineTest {
  protected:
    static void Expect(int exitCode, const std::vector<std::string>& command,
                       const ProcessOptions& options = {}) {
        const ProcessResult result = RunProgram("snclient", command, options);
        EXPECT_EQ(result.exitCode, exitCode) << command.front() << result.output << result.errors;
        EXPECT_EQ(result.errors.empty(), exitCode == 0) << command.front();
    }
    // The only line that a command prints.
    static WString LineOf(const std::vector<std::string>& command) {
        std::string output = RunProgram("snclient", command).output;
        if (!output.empty()) output.pop_back();
        return Utf8ToWide(output);
    }
    // The facts about the client; those about the user follow.
    static std::string ClientStatus() {
        const std::string status = RunProgram("snclient", {"status"}).output;
        return status.substr(0, status.find("account"));
    }
    fs::path MakeFile(const std::string& content) const {
        fs::path path = ScratchFolder() / "file.conf";
        WriteWholeFile(path, content);
        return path;
    }
    // What decrypt_buffer makes of a file; "!" when it fails.
    static std::string Decrypt(const fs::path& path, const WCHAR* password) {
        const std::string form = ReadWholeFile(path);
        std::string plain(form.size(), '\0');
        auto size = static_cast<DWORD>(plain.size());
        if (decrypt_buffer(form.data(), size, plain.data(), &size, password) != 0) return "!";
        return plain.substr(0, size);
    }
};

TEST_F(ClientToolTest, SwitchesTheClientsState) {
    EXPECT_EQ(ClientStatus(),
              "managed: no\nFIPS mode: no\nlock password set: no\nregistry locked: no\n");
    for (const auto& command : Commands{{"managed", "on"},
                                        {"fips", "on"},
                                        {"lock"},
                                        {"set-lock-password", "geheim"},
                                        {"service", "SA_Scheduler", "start"},
                                        {"service", "SA_Scheduler", "start"}}) {
        Expect(0, command);
    }
    EXPECT_EQ(ClientStatus(),
              "managed: yes\nFIPS mode: yes\nlock password set: yes\nregistry locked: yes\n"
              "service SA_Scheduler: running\n");
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(TEXT("geheim")));
    EXPECT_TRUE(sec_is_registry_locked());
    EXPECT_NE(cfg_is_scheduler_running(), 0);
    for (const auto& command : Commands{{"managed", "off"},
                                        {"fips", "off"},
                                        {"unlock"},
                                        {"clear-lock-password"},
                                        {"service", "SA_Scheduler", "stop"},
                                        {"service", "SA_Scheduler", "stop"}}) {
        Expect(0, command);
    }
    EXPECT_EQ(ClientStatus(),
              "managed: no\nFIPS mode: no\nlock password set: no\nregistry locked: no\n"
              "service SA_Scheduler: stopped\n");
}

TEST_F(ClientToolTest, RefusesWrongArgumentsAndStrangers) {
    for (const auto& command : Commands{{"nonsense"},
                                        {"lock", "it"},
                                        {"managed"},
                                        {"managed", "maybe"},
                                        {"set-lock-password", ""},
                                        {"service", "SA_Scheduler", "pause"},
                                        {"encrypt-pid", "12x"},
                                        {"protect-file", "x", "everyone"}}) {
        Expect(2, command);
    }
    Expect(1, {"service", "SA_Missing", "stop"});
    Expect(1, {"encrypt-file", "no-such-file", "out", "pw"});
    Expect(1, {"protect-value", "HKLM\\software\\missing", "x"});
    Expect(0, {"protect-file", "--help"});
    SKIP_UNLESS_ADMINISTRATOR();
    ProcessOptions stranger;
    stranger.account = Account{12345, 12345};
    for (const auto& command :
         Commands{{"managed", "on"}, {"lock"}, {"service", "SA_Scheduler", "start"}}) {
        Expect(1, command, stranger);
    }
    EXPECT_EQ(ClientStatus(),
              "managed: no\nFIPS mode: no\nlock password set: no\nregistry locked: no\n");
}

TEST_F(ClientToolTest, EncryptsArguments) {
    DecodeBuiltInSecrets();
    for (const char* password : {"x", "Zürich & 'Söhne'"}) {
        SecureText plain;
        const WString form = LineOf({"encrypt-password", password});
        ASSERT_TRUE(DecryptPasswordArgument(form.c_str(), plain)) << password;
        EXPECT_EQ(plain.c_str(), Utf8ToWide(password));
    }
    const auto processId = DecryptArgument(LineOf({"encrypt-pid", "4711"}).c_str(), nullptr);
    ASSERT_TRUE(processId);
    EXPECT_STREQ(reinterpret_cast<const char*>(processId->data()), "4711");
}

TEST_F(ClientToolTest, EncryptsAFileWithOrWithoutTheMarker) {
    const fs::path plain = MakeFile("<sentrel_configuration/>");
    const fs::path form = ScratchFolder() / "form";
    WriteWholeFile(form, "what stood there before");
    Expect(0, {"encrypt-file", plain.string(), form.string(), "pw"});
    EXPECT_EQ(fs::file_size(form), fs::file_size(plain) + 28);
    EXPECT_EQ(Decrypt(form, TEXT("pw")), ReadWholeFile(plain));
    EXPECT_EQ(Decrypt(form, TEXT("wrong")), "!");
    Expect(0, {"encrypt-file", plain.string(), form.string(), "pw", "--marker"});
    EXPECT_EQ(ReadWholeFile(form).substr(0, 4), "Enc ");
    EXPECT_EQ(Decrypt(form, TEXT("pw")), ReadWholeFile(plain));
    // Where the file cannot be made or replaced, no draft stays behind.
    fs::create_directory(ScratchFolder() / "folder");
    Expect(1, {"encrypt-file", plain.string(), (ScratchFolder() / "folder").string(), "pw"});
    Expect(1, {"encrypt-file", plain.string(), (ScratchFolder() / "no" / "x").string(), "pw"});
    EXPECT_EQ(std::distance(fs::directory_iterator(ScratchFolder()), {}), 3);
}

TEST_F(ClientToolTest, ProtectsAndMasksFilesInPlace) {
    DecodeBuiltInSecrets();
    ASSERT_TRUE(DataProtectInit());
    const std::string content = "<sentrel_configuration/>";
    for (const char* scope : {"machine", "user"}) {
        const fs::path path = MakeFile(content);
        Expect(0, {"protect-file", path.string(), scope});
        EXPECT_EQ(ReadWholeFile(path).find(content), std::string::npos);
        EXPECT_EQ(DataUnprotectFile(Utf8ToWide(path.string()).c_str()), kDataOk);
        EXPECT_EQ(ReadWholeFile(path), content);
    }
    const fs::path path = MakeFile(content);
    Expect(0, {"mask-file", path.string()});
    EXPECT_NE(ReadWholeFile(path), content);
    Expect(0, {"mask-file", path.string()});
    EXPECT_EQ(ReadWholeFile(path), content);
}

TEST_F(ClientToolTest, ProtectsARegistryValue) {
    const HKEY key = reg_createkeyW(HKEY_LOCAL_MACHINE, TEXT("software\\Verdane\\Sentrel\\SA_VPN"));
    ASSERT_TRUE(reg_setstringW(key, TEXT("psk"), TEXT("correct horse")));
    Expect(0, {"protect-value", "HKLM\\software\\Verdane\\Sentrel\\SA_VPN", "psk"});
    EXPECT_TRUE(reg_is_encrypted_valueW(key, TEXT("psk")));
    WCHAR* text = nullptr;
    ASSERT_TRUE(reg_getstringW(key, TEXT("psk"), &text, nullptr));
    EXPECT_EQ(WStringView(text), TEXT("correct horse"));
    reg_free(text);
    reg_closekeyW(key);
}

}  // namespace
