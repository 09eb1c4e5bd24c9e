// Every command on a machine whose own disk, or that of temporary files, is full or nearly so.
#include <utilsdll.h>

#include <set>

#include "tests/end_to_end/client_machine.h"
#include "tests/support/faults.h"

namespace {

namespace fs = std::filesystem;

class FullDiskTest : public ClientMachine, public testing::WithParamInterface<bool> {};

TEST_P(FullDiskTest, IsAnErrorWithItsOutcomeInEveryCommand) {
    const std::string mask = (ScratchFolder() / "masked").string();
    const std::string source = (ScratchFolder() / "good.xml").string();
    const std::string secret = (ScratchFolder() / "secret").string();
    const std::string output = (ScratchFolder() / "output").string();
    const std::string value = "HKLM\\" SENTREL_PRODUCT_KEY "\\" + kOffice;
    using Commands = std::vector<std::vector<std::string>>;
    auto withUserSettings = BackupArguments();
    withUserSettings.push_back("-u");
    const Commands tool = {BackupArguments(),
                           {"-o", "import", "-f", source, "-p", kPassword},
                           {"-o", "import_settings", "-f", output + ".xml", "-p", kPassword},
                           {"-f", secret, "-p", kPassword, "-O", output},
                           withUserSettings};
    const Commands client = {{"--help"},
                             {"status"},
                             {"set-lock-password", "open sesame"},
                             {"lock"},
                             {"unlock"},
                             {"clear-lock-password"},
                             {"managed", "on"},
                             {"managed", "off"},
                             {"fips", "on"},
                             {"fips", "off"},
                             {"clear-fips-error"},
                             {"service", "SA_Scheduler", "start"},
                             {"service", "SA_Scheduler", "stop"},
                             {"encrypt-password", "password"},
                             {"encrypt-pid", "4711"},
                             {"encrypt-file", source, output + ".enc", kPassword},
                             {"protect-file", mask, "machine"},
                             {"mask-file", mask},
                             {"protect-value", value, "password"}};
    // 1. The machine, and what the commands work on.
    const SmallDisk disk(GetParam() ? EndpointFolder() : TemporaryFolder(), 8U << 20);
    if (!disk) GTEST_SKIP() << "without " << kSmallDisk;
    ASSERT_EQ(Tool({"-f", source, "-p", kPassword}).exitCode, 0);
    Client({"encrypt-file", source, secret, kPassword});
    const UniqueRegKey user(
        reg_createkeyW(HKEY_CURRENT_USER, TEXT(SENTREL_PRODUCT_KEY "\\SA_UI\\window")));
    ASSERT_TRUE(reg_setstringW(user.get(), TEXT("large"), WString(40'000, 'x').c_str()));
    const std::string good = ReadWholeFile(source);
    // 2. Each of them, with more and more of the disk free.
    for (const std::size_t free : {0U, 4096U, 16'384U, 65'536U, 262'144U}) {
        disk.Fill(free);
        const auto run = [&](const std::string& program, const std::vector<std::string>& arguments,
                             const std::set<int>& exitCodes) {
            SCOPED_TRACE(testing::Message() << program << arguments.front() << ", " << free);
            WriteWholeFile(file_, "old");
            WriteWholeFile(mask, "plain");
            fs::copy_file(source, output + ".xml", fs::copy_options::overwrite_existing);
            const ProcessResult result = RunProgram(program, arguments);
            EXPECT_TRUE(exitCodes.contains(result.exitCode)) << result.exitCode << result.errors;
            const std::string backup = BackupContent();
            EXPECT_TRUE(backup == "old" || backup.ends_with("</sentrel_configuration>\n"));
            EXPECT_TRUE(result.exitCode == 0 || ReadWholeFile(mask) == "plain");
            EXPECT_EQ(ReadWholeFile(source), good);
        };
        run("SNConfig", {"-h"}, {0});
        for (const auto& arguments : tool) run("SNConfig", arguments, {0, 1, 2, 3, 5});
        for (const auto& arguments : client) run("snclient", arguments, {0, 1});
    }
    // 3. With room again all is as it was.
    disk.Empty();
    for (const char* command : {"unlock", "clear-lock-password"}) Client({command});
    ExpectRun(Tool(tool[1]), 0, "");
    ExpectRun(Backup(), 0, "");
    EXPECT_NE(BackupContent().find("strict"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(EveryCommand, FullDiskTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& isMachines) {
                             return isMachines.param ? "Machine" : "TemporaryFiles";
                         });

}  // namespace
