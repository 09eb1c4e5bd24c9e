// The client's crypto logs, and its side of the crypto service's protocol.
#include <cstdio>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <thread>

#include "common/format.h"
#include "common/handles.h"
#include "common/text.h"
#include "cryptd/SNCryptdAPI.h"
#include "cryptd/crypto_log.h"
#include "tests/support/fake_crypto_service.h"
#include "tests/support/machine.h"
#include "tests/support/wide.h"

// The time limit of the last exchange. The linker passes the product's calls through here.
static DWORD limitOfCall = 0;
extern "C" decltype(MsgPipe_SendRecv) __real_MsgPipe_SendRecv;
extern "C" int __wrap_MsgPipe_SendRecv(const WCHAR* pipe, DWORD cmdId, int param1, int param2,
                                       const void* data, DWORD dataSize, CryptdMessage* reply,
                                       void* replyBuffer, DWORD* replySize, DWORD milliseconds) {
    limitOfCall = milliseconds;
    return __real_MsgPipe_SendRecv(pipe, cmdId, param1, param2, data, dataSize, reply, replyBuffer,
                                   replySize, milliseconds);
}

namespace {

namespace fs = std::filesystem;

// --- The logs -----------------------------------------------------------------------------------

// The logs lie beside the program, so a test runs as a copy of it with a folder of its own.
class CryptoLogTest : public MachineTest {
  protected:
    CryptoLogTest() { CryptdLogInit(); }

    // True in the test itself, once its copy has run; in the copy false, and FIPS mode is on.
    bool RanAsCopy() {
        if (Role().empty()) {
            // Where the local time is not Greenwich's.
            const ProcessOptions there = {{{"TZ", "East-5"}}, {}, {}};
            output_ = RunRole("copy", there, CopyOf(PathOfThisProgram())).output;
            return true;
        }
        EXPECT_TRUE(cfg_set_fips_mode(true));
        return false;
    }
    static fs::path Folder() { return PathOfThisProgram().parent_path() / "logs" / "fips"; }
    // A log's bytes; each line's date and time are the letter T.
    static std::string Content(const std::string& name) {
        static const std::regex time(R"((^|\n)\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})");
        return std::regex_replace(ReadWholeFile(Folder() / name), time, "$1T");
    }
    // A line's start, with the letter T for the time.
    static std::string Prefix() {
        return WideToUtf8(
            FormatWide(TEXT("T [%5u,%5u] - "), GetCurrentProcessId(), GetCurrentThreadId()));
    }
    static std::string Lines(const std::vector<std::string>& messages) {
        std::string text;
        for (const std::string& message : messages) text += Prefix() + message + "\r\n";
        return text;
    }

    std::string output_;
};

TEST_F(CryptoLogTest, LinesByteForByteButNoneOutsideFipsMode) {
    if (RanAsCopy()) return;
    ASSERT_TRUE(cfg_set_fips_mode(false));
    CryptdMsg("a message");
    CryptdLogSeparator(3);
    EXPECT_EQ(CryptdLogWrite(CryptdGetLogPath(), gCryptdLogMute, "a message"), 0);
    EXPECT_FALSE(fs::exists(Folder().parent_path()));

    ASSERT_TRUE(cfg_set_fips_mode(true));
    EXPECT_EQ(fs::path(CryptdGetLogPath()), Folder() / "CryptdLog.txt");
    EXPECT_EQ(fs::path(CryptdGetMsgPath()), Folder() / "CryptdMsg.txt");
    SYSTEMTIME now;
    GetLocalTime(&now);
    CryptdLog("ten chars.");
    EXPECT_TRUE(ReadWholeFile(CryptdGetLogPath())
                    .starts_with(WideToUtf8(FormatWide(TEXT("%04d-%02d-%02d %02d:"), now.wYear,
                                                       now.wMonth, now.wDay, now.wHour))))
        << "or an hour came to its end";
    CryptdLogSeparator(10);
    CryptdLog("");
    CryptdLog("~no prefix\n");
    CryptdLogW(TEXT("two\nlines\n"));
    CryptdLogPrintf("%s=%03d", "x", 7);
    CryptdMsgW(TEXT("Grüße"));
    CryptdMsgPrintfW(TEXT("%ws %s %S %u\n"), TEXT("wide"), TEXT("text"), "narrow", 4U);
    CryptdMsgSeparator(-1000);
    const std::string messages = Lines({"Grüße", "wide text narrow 4"}) + "\r\n";
    const std::string dashes(Prefix().size() - 1 + 23 + 10, '-');
    EXPECT_EQ(Content("CryptdMsg.txt"), messages);
    EXPECT_EQ(Content("CryptdLog.txt"), Lines({"ten chars."}) + dashes + "\r\nno prefix\r\n" +
                                            Lines({"two\r\nlines", "x=007"}) + messages);

    // A formatted message is cut, one that is given whole is not.
    CryptdLogClear();
    const std::string text(10'000, 'x');
    CryptdLogPrintf("%s", text.c_str());
    CryptdLogPrintfW(TEXT("%S"), text.c_str());
    CryptdLog(text.c_str());
    EXPECT_EQ(Content("CryptdLog.txt"),
              Lines({text.substr(0, 8'191), text.substr(0, 8'191), text}));
}

TEST_F(CryptoLogTest, AFullLogBecomesItsBackup) {
    if (RanAsCopy()) return;
    const fs::path log = Folder() / "CryptdLog.txt";
    const fs::path backup = Folder() / "CryptdLog.txt.bak";
    const std::string full(1'048'576, 'f');
    fs::create_directories(Folder());
    WriteWholeFile(log, full);
    WriteWholeFile(backup, "older");
    CryptdLog("~1");
    EXPECT_EQ(ReadWholeFile(log), full + "1\r\n");
    EXPECT_EQ(ReadWholeFile(backup), "older");
    CryptdLog("~2");
    EXPECT_EQ(ReadWholeFile(log), "2\r\n");
    EXPECT_EQ(ReadWholeFile(backup), full + "1\r\n");

    const fs::path copy = ScratchFolder() / "copy.txt";
    WriteWholeFile(copy, "something longer than the log");
    EXPECT_EQ(CryptdLogCopy(Wide(copy).c_str()), 0);
    EXPECT_EQ(ReadWholeFile(copy), "2\r\n");
    EXPECT_EQ(CryptdLogCopy(TEXT("")), -1);
    EXPECT_EQ(CryptdLogCopy(nullptr), -1);
    EXPECT_EQ(CryptdLogCopy(Wide(ScratchFolder() / "no" / "x").c_str()), -2);
    CryptdMsg("stays");
    CryptdLogClear();
    EXPECT_FALSE(fs::exists(log) || fs::exists(backup));
    EXPECT_EQ(Content("CryptdMsg.txt"), Lines({"stays"}));
    CryptdMsgClear();
    EXPECT_TRUE(fs::is_empty(Folder()));
}

TEST_F(CryptoLogTest, WritesWithoutAMutexAndAfterADeadWriter) {
    if (Role() == "dies") {
        EXPECT_EQ(WaitForSingleObject(gCryptdLogMute, INFINITE), WAIT_OBJECT_0);
        return;
    }
    if (RanAsCopy()) {
        // For what the dead writer left, without a mutex, and with a wrong one.
        const std::size_t said = output_.find("CryptdMutex");
        EXPECT_EQ(output_.substr(said, output_.rfind("lock.\n") + 6 - said),
                  "CryptdMutexLock(): Can't lock.\n"
                  "CryptdMutexLock(): hMutex is NULL.\n"
                  "CryptdMutexUnlock(): hMutex is NULL.\n"
                  "CryptdMutexLock(): Can't lock.\n");
        return;
    }
    RunRole("dies");
    CryptdLog("~after a dead writer");
    EXPECT_EQ(CryptdLogWrite(CryptdGetLogPath(), nullptr, "~without"), 0);
    const auto wrong = reinterpret_cast<HANDLE>(~std::uintptr_t{15});
    EXPECT_EQ(CryptdLogWrite(CryptdGetLogPath(), wrong, "~with a wrong one"), 0);
    EXPECT_EQ(Content("CryptdLog.txt"), "after a dead writer\r\nwithout\r\nwith a wrong one\r\n");
    // Where the log cannot be opened, the mutex is given back.
    EXPECT_EQ(CryptdLogWrite(Wide(Folder()).c_str(), gCryptdLogMute, "x"), -1);
    std::thread([] { EXPECT_EQ(WaitForSingleObject(gCryptdLogMute, 0), WAIT_OBJECT_0); }).join();
}

TEST_F(CryptoLogTest, ManyWritersLoseAndTearNothingAcrossRotations) {
    constexpr int kLines = 10'000;
    if (Role().size() == 1) {
        for (int i = 0; i < kLines; ++i) CryptdLogPrintf("writer %s line %d", Role().c_str(), i);
        return;
    }
    if (RanAsCopy()) return;
    RunRoles(8);

    const std::regex form(
        R"([-0-9]{10} [:.0-9]{12} \[[ 0-9]+,[ 0-9]+\] - writer (\d) line (\d+)\r)");
    std::map<int, int> next;  // line of each writer
    std::istringstream lines(ReadWholeFile(Folder() / "CryptdLog.txt.bak") +
                             ReadWholeFile(Folder() / "CryptdLog.txt"));
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, form)) << line;
        const int number = std::stoi(match[2]);
        const auto writer = next.try_emplace(std::stoi(match[1]), number).first;
        ASSERT_EQ(number, writer->second++);
    }
    EXPECT_FALSE(next.empty());
    for (const auto& [writer, number] : next) EXPECT_EQ(number, kLines) << writer;
    EXPECT_GT(fs::file_size(Folder() / "CryptdLog.txt.bak"), 1'048'576U);
    EXPECT_LT(fs::file_size(Folder() / "CryptdLog.txt.bak"), 1'048'576U + 100U);
}

// --- The protocol -------------------------------------------------------------------------------

class CryptdProtocolTest : public CryptoLogTest {};

TEST_F(CryptdProtocolTest, BadRepliesFailInTimeAndLeaveTheBufferAlone) {
    Bytes wrongMagic = Message(5, 100, Bytes(100));
    wrongMagic[0] ^= 1;
    Bytes missingByte = Message(5, 100, Bytes(100));
    missingByte.pop_back();
    const struct {
        std::optional<Bytes> reply;
        DWORD delay;
        int result;
    } cases[] = {
        {Message(5, 100, Bytes(100, 7)), 0, 100},
        {Bytes(), 0, MSGPIPE_TIMED_OUT},
        {Message(5, 100, Bytes(100, 7)), 700, MSGPIPE_TIMED_OUT},
        {std::nullopt, 0, MSGPIPE_BROKEN},
        {Bytes(10), 0, MSGPIPE_BAD_REPLY},
        {wrongMagic, 0, MSGPIPE_BAD_REPLY},
        {missingByte, 0, MSGPIPE_BAD_REPLY},
        {Message(5, 100, Bytes(101)), 0, MSGPIPE_REPLY_TOO_LARGE},
        {Message(5, 100, Bytes(100'000)), 0, MSGPIPE_REPLY_TOO_LARGE},
        {Message(7, 100), 0, -100},
        {Message(0, 5), 0, -100},
        {Message(5, 99, Bytes(100)), 0, -200},
        {Message(5, 100, Bytes(99)), 0, -200},
    };
    for (const auto& [reply, delay, result] : cases) {
        FakeService service(1, [answer = reply, pause = delay](const Received& /*request*/) {
            Sleep(pause);
            return answer;
        });
        Bytes buffer(300, 0xAA);
        const ULONGLONG start = GetTickCount64();
        EXPECT_EQ(CryptdGetRandomBytes(buffer.data() + 100, 100, 0, 300), result);
        const ULONGLONG taken = GetTickCount64() - start;
        EXPECT_GE(taken, result == MSGPIPE_TIMED_OUT ? 290U : 0U);
        EXPECT_LT(taken, 5'000U);
        const BYTE first = result == 100 ? 7 : result == -200 ? 0 : 0xAA;
        EXPECT_EQ(buffer[100], first) << result;
        EXPECT_EQ(buffer[99], 0xAA);
        EXPECT_EQ(buffer[200], 0xAA);
    }
    BYTE byte = 0;
    EXPECT_EQ(CryptdGetRandomBytes(&byte, 1, 0, 300), MSGPIPE_NO_SERVER);
}

TEST_F(CryptdProtocolTest, ManyBytesComeInSeveralExchanges) {
    Bytes buffer(250'001);
    {
        FakeService service(3, Giving(9));
        EXPECT_EQ(CryptdGetEntropyBytes(buffer.data(), 250'000), 250'000);
        EXPECT_EQ(std::count(buffer.begin(), buffer.end(), BYTE{9}), 250'000);
        std::vector<int> asked;
        for (const auto& [header, payload] : service.Requests()) {
            asked.push_back(header.param1);
            EXPECT_EQ(header.cmdId, DWORD{CRYPTD_CTRL_CMD_ID_RANDOM_BYTES_REQ});
            EXPECT_EQ(header.param2, 1);
            EXPECT_TRUE(payload.empty());
        }
        EXPECT_EQ(asked, (std::vector{101'376, 101'376, 47'248}));
    }
    // What came before a failure stays.
    FakeService service(2, [](const Received& request) {
        return request.header.param1 == 101'376 ? Giving(8)(request) : Message(5, 0);
    });
    EXPECT_EQ(CryptdGetRandomBytes(buffer.data(), 101'377, 0, 5'000), -200);
    EXPECT_EQ(std::count(buffer.begin(), buffer.end(), BYTE{8}), 101'376);
}

TEST_F(CryptdProtocolTest, WrongArgumentsNeedNoService) {
    BYTE byte = 0;
    WCHAR text[2];
    EXPECT_EQ(CryptdGetRandomBytes(&byte, 0, 0, 5'000), 0);
    EXPECT_EQ(CryptdGetRandomBytes(nullptr, 1, 0, 5'000), -1);
    EXPECT_EQ(CryptdGetRandomBytes(&byte, -1, 0, 5'000), -1);
    EXPECT_EQ(CryptdCallPipeServer(nullptr, nullptr, 0), -1);
    EXPECT_EQ(CryptdQueryText(text, 0), -1);
    const Bytes data(MSGPIPE_MAX_PAYLOAD + 1);
    EXPECT_EQ(CryptdConfigurationRequest(3, 0, data.data(), MSGPIPE_MAX_PAYLOAD + 1, nullptr,
                                         nullptr, nullptr, 0),
              MSGPIPE_TOO_LARGE);
    EXPECT_EQ(CryptdConfigurationRequest(3, 0, nullptr, 1, nullptr, nullptr, nullptr, 0),
              MSGPIPE_BAD_ARGUMENTS);
}

TEST_F(CryptdProtocolTest, TimeLimitsOfOtherExchanges) {
    const CryptdMessage request = {CRYPTD_CTRL_CMD_ID_QUERY_TEXT_REQ, 0, 0, nullptr, 0};
    BYTE byte = 0;
    WCHAR text[2];
    const struct {
        DWORD limit;
        std::function<int()> call;
    } cases[] = {
        {5'000, [&] { return CryptdCallPipeServer(&request, nullptr, 0); }},
        {INFINITE, [&] { return CryptdCallPipeServer(&request, nullptr, INFINITE); }},
        {INFINITE, [&] { return CryptdQueryText(text, 2); }},
        {5'000, [&] { return CryptdFipsEnterErrorMode(TEXT("x")); }},
        {5'000, [&] { return CryptdGetRandomBytes(&byte, 1, 0, 0); }},
        {300, [&] { return CryptdGetRandomBytes(&byte, 1, 0, 300); }},
        {5'000, [&] { return CryptdGetEntropyBytes(&byte, 1); }},
    };
    for (const auto& [limit, call] : cases) {
        limitOfCall = 1;
        EXPECT_EQ(call(), MSGPIPE_NO_SERVER);
        EXPECT_EQ(limitOfCall, limit) << &call - &cases[0].call;
    }
}

TEST_F(CryptdProtocolTest, OperationsAndTheirLog) {
    if (RanAsCopy()) return;
    const struct {
        DWORD operation;
        DWORD command;
        DWORD limit;
        std::string name;
    } cases[] = {{7, 10, 30'000, "CONFIGURATION_MUTATE_STATE_REQ"},
                 {8, 12, 30'000, "CONFIGURATION_COMMIT_MUTATION_STATE_REQ"},
                 {9, 14, 30'000, "CONFIGURATION_STATE_VERIFY_REQ"},
                 {6, 14, 30'000, "CONFIGURATION_STATE_VERIFY_REQ"},
                 {3, 2, 5'000, ""}};
    std::vector<std::string> log;
    for (const auto& [operation, command, limit, name] : cases) {
        FakeService service(1, [](const Received& request) {
            return Message(request.header.cmdId + 1, -12, {1, 2, 3}, 34);
        });
        int results[2] = {};
        Bytes reply(5, 0xAA);
        EXPECT_EQ(CryptdConfigurationRequest(operation, 77, "data", 4, &results[0], &results[1],
                                             reply.data(), 4),
                  0);
        EXPECT_EQ(limitOfCall, limit) << operation;
        EXPECT_EQ(results[0], -12);
        EXPECT_EQ(results[1], 34);
        EXPECT_EQ(reply, (Bytes{1, 2, 3, 0xAA, 0xAA}));
        const Received& request = service.Requests().at(0);
        EXPECT_EQ(request.header.cmdId, command);
        EXPECT_EQ(request.header.param1, static_cast<int>(operation));
        EXPECT_EQ(request.header.param2, 77);
        EXPECT_EQ(request.payload, (Bytes{'d', 'a', 't', 'a'}));
        if (name.empty()) continue;
        log.push_back("send CRYPTD_CTRL_CMD_ID_" + name);
        log.push_back("sent CRYPTD_CTRL_CMD_ID_" + name + " res=0");
    }
    int result = 55;
    EXPECT_EQ(CryptdConfigurationRequest(8, 0, nullptr, 0, &result, nullptr, nullptr, 0),
              MSGPIPE_NO_SERVER);
    EXPECT_EQ(result, 55);
    log.push_back("send CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ");
    log.push_back("sent CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ res=-1003");
    EXPECT_EQ(Content("CryptdMsg.txt"), Lines(log));
    EXPECT_EQ(Content("CryptdLog.txt"), Lines(log));
}

// A text as the service is sent it, with its terminator.
Bytes BytesOf(const WString& text) {
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
    return {bytes, bytes + (text.size() + 1) * sizeof(WCHAR)};
}

TEST_F(CryptdProtocolTest, FipsErrorsAreLoggedFormattedAndSentAsTheyAre) {
    if (RanAsCopy()) return;
    const WString much(9'000, 'x');
    const std::string start = "CryptdFipsEnterErrorMode()--> msg =\r\n";
    const struct {
        WString sent;
        std::string logged;
        std::function<int()> call;
    } cases[] = {
        {TEXT(""), "\r\n---", [] { return CryptdFipsEnterErrorMode(nullptr); }},
        {TEXT("a ü\n"), "a ü\r\n---", [] { return CryptdFipsEnterErrorMode(TEXT("a ü\n")); }},
        {TEXT("%d %s"), "7 b\r\n---",
         [] { return CryptdFipsEnterErrorMode(TEXT("%d %s"), 7, TEXT("b")); }},
        // Its end is cut off with the line's.
        {much, std::string(8'191 - 36, 'x'),
         [&] { return CryptdFipsEnterErrorMode(much.c_str()); }},
    };
    for (const auto& [sent, logged, call] : cases) {
        CryptdMsgClear();
        FakeService service(1, [](const Received&) { return Message(9, 0); });
        EXPECT_EQ(call(), 0);
        EXPECT_EQ(service.Requests().at(0).header.cmdId, 8U);
        EXPECT_EQ(service.Requests().at(0).payload, BytesOf(sent));
        EXPECT_EQ(Content("CryptdMsg.txt"), Lines({start + logged}));
    }
    CryptdMsgClear();
    const FakeService refusing(1, [](const Received&) { return Message(0, 5); });
    EXPECT_EQ(CryptdFipsEnterErrorMode(TEXT("x")), 100);
    EXPECT_EQ(Content("CryptdMsg.txt"),
              Lines({start + "x\r\n---",
                     "CryptdFipsEnterErrorMode()--> CryptdCallPipeServer() failed. (r=100)"}));
}

TEST_F(CryptdProtocolTest, TextsAreEndedAlsoWhereTheServiceDoesNot) {
    const WString text = TEXT("Grüße");
    const FakeService service(4, [&, asked = 0](const Received& /*request*/) mutable {
        const Bytes replies[] = {Message(7, 1, BytesOf(text)), Message(7, 0), Message(8, 1),
                                 Message(7, 1, Bytes(4, 'x'))};
        return replies[asked++];
    });
    WCHAR answer[100] = {};
    EXPECT_EQ(CryptdQueryText(answer, 100), 0);
    EXPECT_EQ(WString(answer), text);
    EXPECT_EQ(CryptdQueryText(answer, 100), -200);
    EXPECT_EQ(CryptdQueryText(answer, 100), -100);
    // A text that fills the buffer is whole, and nothing is written behind it.
    answer[2] = 'x';
    EXPECT_EQ(CryptdQueryText(answer, 2), 0);
    EXPECT_EQ(WString(answer, 3), WString({0x7878, 0x7878, 'x'}));
}

TEST_F(CryptdProtocolTest, ARequestIsTracedWhileTheSwitchExists) {
    if (RanAsCopy()) return;
    BYTE buffer[3] = {0xAB, 0xCD, 0xEF};
    EXPECT_EQ(CryptdGetRandomBytes(buffer, 3, 0, 20), MSGPIPE_NO_SERVER);
    EXPECT_EQ(Content("CryptdMsg.txt"), "");
    EXPECT_EQ(CryptdIsTraceEnabled(), 0);
    const UniqueHandle traced(
        CreateMutexW(nullptr, FALSE, TEXT("Global\\SN_{7B49E838-48D2-41DC-8B16-016E5A860581}")));
    EXPECT_EQ(CryptdIsTraceEnabled(), 1);
    CryptdGetRandomBytes(buffer, 3, 0, 20);
    CryptdGetRandomBytes(buffer, 1, 2, 0);
    CryptdGetEntropyBytes(buffer, 2);
    CryptdGetEntropyBytes(buffer, 1);
    char start[64];
    std::snprintf(start, sizeof start, "Bytes(pBuf=%p, bufSize=", static_cast<void*>(buffer));
    EXPECT_EQ(Content("CryptdMsg.txt"),
              Lines({std::string("CryptdGetRandom") + start +
                         "3, rbgOptions=0, timeoutMilliseconds=20) = -1003 -> ab cd ...",
                     std::string("CryptdGetRandom") + start +
                         "1, rbgOptions=2, timeoutMilliseconds=0) = -1003 -> ab 00 ...",
                     std::string("CryptdGetEntropy") + start + "2) = rc=-1003 -> ab cd ..."}));
}

}  // namespace
