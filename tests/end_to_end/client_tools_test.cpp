// snclient, each command's effect as another process sees it.
#include <utilsdll.h>
#include <windows.h>

#include <iterator>
#include <utility>

#include "common/text.h"
#include "protect/built_in_secrets.h"
#include "protect/encrypted_forms.h"
#include "tests/support/cipher.h"
#include "tests/support/machine.h"

namespace {

namespace fs = std::filesystem;
using Command = std::vector<std::string>;

class ClientToolTest : public MachineTest {
  protected:
    static void Expect(int exitCode, const Command& command, const ProcessOptions& options = {}) {
        const ProcessResult result = RunProgram("snclient", command, options);
        EXPECT_EQ(result.exitCode, exitCode) << command.front() << result.output << result.errors;
        EXPECT_EQ(result.errors.empty(), exitCode == 0) << command.front();
    }
    static WString LineOf(const Command& command) {
        std::string output = RunProgram("snclient", command).output;
        if (!output.empty()) output.pop_back();
        return Utf8ToWide(output);
    }
    // The facts about the client; those about the user follow.
    static std::string ClientStatus() {
        const std::string status = RunProgram("snclient", {"status"}).output;
        return status.substr(0, status.find("account"));
    }
};

TEST_F(ClientToolTest, EncryptsArguments) {
    DecodeBuiltInSecrets();
    // Also what means something to the reader of the command line elsewhere.
    for (const char* password : {"x", "Zürich & 'Söhne'", "lock", "[a,b]", "/x", "{}"}) {
        SecureText plain;
        const WString form = LineOf({"encrypt-password", password});
        ASSERT_TRUE(DecryptPasswordArgument(form.c_str(), plain)) << password;
        EXPECT_EQ(plain.c_str(), Utf8ToWide(password));
    }
    const auto processId = DecryptArgument(LineOf({"encrypt-pid", "4711"}).c_str(), nullptr);
    ASSERT_TRUE(processId);
    EXPECT_STREQ(reinterpret_cast<const char*>(processId->data()), "4711");
}

TEST_F(ClientToolTest, SwitchesTheClientsState) {
    const auto status = [](const std::string& is, const std::string& service) {
        return "managed: " + is + "\nFIPS mode: " + is + "\nlock password set: " + is +
               "\nregistry locked: " + is + "\n" + service;
    };
    const std::pair<Command, Command> switches[] = {
        {{"managed", "on"}, {"managed", "off"}},
        {{"fips", "on"}, {"fips", "off"}},
        {{"set-lock-password", "geheim"}, {"unlock"}},
        {{"lock"}, {"clear-lock-password"}},
        {{"service", "SA_Scheduler", "start"}, {"service", "SA_Scheduler", "stop"}},
        {{"service", "SA_Scheduler", "start"}, {"service", "SA_Scheduler", "stop"}},
    };
    EXPECT_EQ(ClientStatus(), status("no", ""));
    for (const auto& [on, off] : switches) Expect(0, on);
    EXPECT_EQ(ClientStatus(), status("yes", "service SA_Scheduler: running\n"));
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(TEXT("geheim")));
    for (const auto& [on, off] : switches) Expect(0, off);
    EXPECT_EQ(ClientStatus(), status("no", "service SA_Scheduler: stopped\n"));
    // Without a password there is nothing to lock with, and with it the lock goes.
    Expect(1, {"lock"});
    for (const Command& command :
         {Command{"set-lock-password", "geheim"}, {"lock"}, {"clear-lock-password"}}) {
        Expect(0, command);
    }
    EXPECT_FALSE(sec_is_registry_locked());
}

TEST_F(ClientToolTest, RefusesWrongArgumentsAndStrangers) {
    for (const Command& command : {Command{"nonsense"}, {"lock", "it"}, {"managed", "maybe"}}) {
        Expect(2, command);
    }
    Expect(1, {"service", "SA_Missing", "stop"});
    // A name must not lead out of the place where services are kept.
    Expect(1, {"service", "../SA_Scheduler", "start"});
    Expect(1, {"encrypt-file", "no-such-file", "out", "pw"});
    SKIP_UNLESS_ADMINISTRATOR();
    Expect(0, {"service", "SA_Scheduler", "start"});
    Expect(0, {"set-lock-password", "geheim"});
    const std::string before = ClientStatus();
    Expect(1, {"managed", "on"}, As(12345));
    Expect(1, {"lock"}, As(12345));
    Expect(1, {"service", "SA_Scheduler", "stop"}, As(12345));
    Expect(1, {"service", "SA_Other", "start"}, As(12345));
    EXPECT_EQ(ClientStatus(), before);
}

TEST_F(ClientToolTest, ReadsAPasswordFromItsInput) {
    ProcessOptions options;
    options.input = ScratchFolder() / "input";
    WriteWholeFile(options.input, "Öffne\nmore\n");
    Expect(0, {"set-lock-password", "-"}, options);
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(TEXT("Öffne")));
    WriteWholeFile(options.input, "\n");
    Expect(1, {"set-lock-password", "-"}, options);
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(TEXT("Öffne")));
}

TEST_F(ClientToolTest, OpenSslReadsNoConfigurationOfTheCallers) {
    // With this one no algorithm is found.
    const fs::path configuration = ScratchFolder() / "openssl.cnf";
    WriteWholeFile(configuration,
                   "openssl_conf = all\n[all]\nalg_section = algorithms\n"
                   "[algorithms]\ndefault_properties = fips=yes\n");
    ProcessOptions options;
    options.environment = {{"OPENSSL_CONF", configuration.string()}};
    Expect(0, {"set-lock-password", "geheim"}, options);
    const std::string backup = (ScratchFolder() / "backup.xml").string();
    RunProgram("SNConfig", {"-f", backup, "-p", "pass phrase", "-m", "av"}, options);
    EXPECT_NE(ReadWholeFile(backup).find("authentication=\""), std::string::npos);
}

TEST_F(ClientToolTest, EncryptsAFileWithOrWithoutTheMarker) {
    const fs::path plain = ScratchFolder() / "file.conf";
    WriteWholeFile(plain, "<sentrel_configuration/>");
    const fs::path form = ScratchFolder() / "form";
    WriteWholeFile(form, "what stood there before");
    Expect(0, {"encrypt-file", plain.string(), form.string(), "pw"});
    EXPECT_EQ(Decrypted(ReadWholeFile(form), TEXT("pw")), ReadWholeFile(plain));
    Expect(0, {"encrypt-file", plain.string(), form.string(), "pw", "--marker"});
    EXPECT_EQ(ReadWholeFile(form).substr(0, 4), "Enc ");
    EXPECT_EQ(Decrypted(ReadWholeFile(form), TEXT("pw")), ReadWholeFile(plain));
    // Where the file cannot be made or replaced, no draft stays behind.
    fs::create_directory(ScratchFolder() / "folder");
    Expect(1, {"encrypt-file", plain.string(), (ScratchFolder() / "folder").string(), "pw"});
    Expect(1, {"encrypt-file", plain.string(), (ScratchFolder() / "no" / "x").string(), "pw"});
    EXPECT_EQ(std::distance(fs::directory_iterator(ScratchFolder()), {}), 3);
}

}  // namespace
