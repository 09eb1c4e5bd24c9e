// The tool on a machine in FIPS mode, beside the crypto service: whole, stopped and refusing.
#include <utilsdll.h>

#include <regex>
#include <set>
#include <tuple>

#include "cryptd/crypto_log.h"
#include "tests/end_to_end/client_machine.h"
#include "tests/support/fake_crypto_service.h"

namespace {

namespace fs = std::filesystem;

const std::string kBeginSent =
    "send CRYPTD_CTRL_CMD_ID_CONFIGURATION_MUTATE_STATE_REQ\r\n"
    "sent CRYPTD_CTRL_CMD_ID_CONFIGURATION_MUTATE_STATE_REQ res=";
constexpr const char* kCommitSent =
    "send CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ\r\n"
    "sent CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ res=";
const std::string kErrorMode = "CryptdFipsEnterErrorMode()--> msg =\r\n";
constexpr const char* kBeginFailed =
    "FIPS Error: SNConfig.exe failed to set modifying configuration state falg.\r\n---\r\n";
constexpr const char* kCommitFailed =
    "FIPS Error: SNConfig.exe failed to update configuration state.\r\n---\r\n";

// The logs lie beside the program, and OpenSSL's modules in the folder where it starts.
class FipsModeTest : public ClientMachine {
  protected:
    FipsModeTest() {
        if (!Role().empty()) return;
        InstallModules(Folder());
        EXPECT_EQ(Backup().exitCode, 0);
        SetProfile("lax");
        Client({"fips", "on"});
        Client({"service", "SA_Scheduler", "start"});
    }

    fs::path Folder() const { return program_.parent_path(); }
    ProcessResult InFolder(const std::vector<std::string>& arguments) const {
        return RunProgram(program_.string(), arguments, {{}, Folder(), {}});
    }
    ProcessResult Import(const std::string& operation = "import") const {
        return InFolder({"-o", operation, "-f", file_.string(), "-m", "av"});
    }
    // The messages of a log, without their prefixes.
    std::string Messages(const char* name) const {
        static const std::regex prefix(R"(\d{4}-\d\d-\d\d [\d:.]{12} \[[ \d]{5},[ \d]{5}\] - )");
        return std::regex_replace(ReadWholeFile(Folder() / "logs" / "fips" / name), prefix, "");
    }

    fs::path program_ = Role().empty() ? CopyOf(FileOfBuild("SNConfig")) : fs::path();
};

TEST_F(FipsModeTest, AnOrdinaryUserBacksUpToo) {
    SKIP_UNLESS_ADMINISTRATOR();
    BackgroundProcess service("sncryptd", {});
    ASSERT_TRUE(service.WaitForOutput("listening"));
    CryptdLogInit();  // which the user's run shares the mutex with
    file_ = TemporaryFolder() / "users.xml";
    ExpectRun(RunProgram(program_.string(), BackupArguments({"-m", "av"}), {{}, Folder(), 12345}),
              0, "");
    EXPECT_NE(BackupContent().find("</av>"), std::string::npos);
    fs::remove(file_);
}

// One salt and counter for two texts would make one key stream for both.
TEST_F(FipsModeTest, NoTwoProtectedValuesShareTheirKeyWhoeverServesRandomBytes) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "zeros") {
        const FakeService service(100'000, Giving(0));
        Say("serving");
        Sleep(INFINITE);
    }
    Client({"service", "SA_Scheduler", "stop"});
    {
        const UniqueHandle makesTheFolder(CreateNamedPipeW(TEXT("\\\\.\\pipe\\SN_test"),
                                                           PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE, 1,
                                                           0, 0, 0, nullptr));
    }
    BackgroundProcess zeros = StartRole("zeros", As(12345));
    ASSERT_TRUE(zeros.WaitForOutput("serving"));
    static const std::regex start("(?:authentication=\"|EncX )([0-9A-Fa-f]{24})");
    std::set<std::string> ids;
    std::size_t count = 0;
    for (int i = 0; i < 4; ++i) {
        ExpectRun(InFolder(BackupArguments()), 0, "");
        const std::string backup = BackupContent();
        for (std::sregex_iterator found(backup.begin(), backup.end(), start), end; found != end;
             ++found) {
            ids.insert((*found)[1]);
            ++count;
        }
    }
    EXPECT_GE(count, 8U);
    EXPECT_EQ(ids.size(), count);
}

TEST_F(FipsModeTest, ARestoreIsAChangeOfTheConfigurationState) {
    BackgroundProcess service("sncryptd", {});
    ASSERT_TRUE(service.WaitForOutput("listening"));
    ExpectRun(Import(), 0, "");
    EXPECT_EQ(Profile(), "strict");
    const std::string expected = kBeginSent + "0\r\n" + kCommitSent + "0\r\n";
    EXPECT_EQ(Messages("CryptdMsg.txt"), expected);
    EXPECT_EQ(Messages("CryptdLog.txt"), expected);
    EXPECT_EQ(RunProgram("snclient", {"status"}).output.find("FIPS error"), std::string::npos);

    // Where the scheduler keeps no watch, nothing is announced.
    Client({"service", "SA_Scheduler", "stop"});
    EXPECT_EQ(Import().exitCode, 0);
    EXPECT_EQ(Messages("CryptdMsg.txt"), expected);
}

TEST_F(FipsModeTest, RandomBytesAreTheServicesWhileThereIsOne) {
    Client({"service", "SA_Scheduler", "stop"});  // which leaves nothing else to log
    const UniqueHandle trace(
        CreateMutexW(nullptr, FALSE, TEXT("Global\\SN_{7B49E838-48D2-41DC-8B16-016E5A860581}")));
    const std::regex line(
        R"(CryptdGetRandomBytes\(pBuf=\S+, bufSize=(\d+), rbgOptions=0, timeoutMilliseconds=5000\) = (-?\d+) -> .. .. \.\.\.\r\n)");
    BackgroundProcess service("sncryptd", {});
    ASSERT_TRUE(service.WaitForOutput("listening"));
    for (const char* eight : {"bufSize=8, rbgOptions=0, timeoutMilliseconds=5000) = 8 ->",
                              "bufSize=8, rbgOptions=0, timeoutMilliseconds=5000) = -"}) {
        const std::string copy = (ScratchFolder() / "copy.xml").string();
        EXPECT_EQ(InFolder({"-f", copy, "-p", kPassword}).exitCode, 0);
        EXPECT_TRUE(fs::remove(copy));
        const std::string log = Messages("CryptdMsg.txt");
        EXPECT_EQ(std::regex_replace(log, line, ""), "");
        EXPECT_NE(log.find(eight), std::string::npos) << log;
        fs::remove_all(Folder() / "logs");
        service.Kill();
    }
}

TEST_F(FipsModeTest, WithoutTheServiceNothingIsChanged) {
    ExpectRun(Import(), 0, "");
    EXPECT_EQ(Profile(), "lax");
    const std::string noReply =
        "CryptdFipsEnterErrorMode()--> CryptdCallPipeServer() failed. (r=-1)\r\n";
    EXPECT_EQ(std::regex_replace(Messages("CryptdMsg.txt"), std::regex("=-\\d+"), "=-1"),
              kBeginSent + "-1\r\n" + kErrorMode + kBeginFailed + noReply +  //
                  kCommitSent + "-1\r\n" + kErrorMode + kCommitFailed + noReply);
}

TEST_F(FipsModeTest, ARefusedCommitDoesNotChangeTheResult) {
    FakeService service(4, [](const Received& request) -> std::optional<Bytes> {
        const DWORD command = request.header.cmdId;
        const bool isCommit = command == CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ;
        if (command == CRYPTD_CTRL_CMD_ID_RANDOM_BYTES_REQ) return Giving(7)(request);
        return Message(command + 1, isCommit ? -5 : 0);
    });
    EXPECT_EQ(Import().exitCode, 0);
    EXPECT_EQ(Profile(), "strict");
    std::vector<DWORD> commands;
    for (const Received& request : service.Requests()) commands.push_back(request.header.cmdId);
    EXPECT_EQ(commands, (std::vector<DWORD>{4, 10, 12, 8}));
    EXPECT_NE(Messages("CryptdMsg.txt").find(kErrorMode + kCommitFailed), std::string::npos);
}

TEST_F(FipsModeTest, TheInstallersStateGoesWhereNoSchedulerKeepsIt) {
    Client({"service", "SA_Scheduler", "stop"});
    for (const auto& [fipsMode, operation, state] : {std::tuple("on", "import", "kept"),
                                                     {"on", "import_installer_config", ""},
                                                     {"off", "import_installer_config", "kept"}}) {
        Client({"fips", fipsMode});
        SetText("SA_CONFIGD", "state", "kept");
        EXPECT_EQ(Import(operation).exitCode, 0);
        EXPECT_EQ(Text("SA_CONFIGD", "state"), state);
    }
}

TEST_F(FipsModeTest, StartsAlsoWhereTheLogsMutexCannotBeMade) {
    const UniqueHandle ofThatName(CreateEventW(
        nullptr, FALSE, FALSE, TEXT("Global\\SN_{770C9A0D-583E-4A62-B76C-73AA4CFD2DDD}")));
    const ProcessResult help = RunProgram("SNConfig", {"-h"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(
        help.output.starts_with("Failed to create gCryptdLogMute! (e=6)\n"
                                "Failed to create gCryptdMsgMute! (e=6)\n"))
        << help.output;
}

}  // namespace
