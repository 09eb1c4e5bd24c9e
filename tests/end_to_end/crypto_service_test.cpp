// The crypto service as a program: what it serves, to whom, and what outlives it.
#include <csignal>
#include <set>

#include "common/text.h"
#include "cryptd/SNCryptdAPI.h"
#include "tests/support/fake_crypto_service.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"

namespace {

constexpr const WCHAR* kSettings = TEXT("software\\Verdane\\Sentrel\\SA_AV");

class CryptoServiceTest : public MachineTest {
  protected:
    static BackgroundProcess Start() {
        BackgroundProcess service("sncryptd", {});
        EXPECT_TRUE(service.WaitForOutput("listening on \\\\.\\pipe\\SN_{AA18B4A3-"));
        return service;
    }
    void Restart() {
        service_->Kill();
        service_ = Start();
    }
    // The first result of a configuration request; -999 when it was not answered.
    static int Ask(DWORD operation) {
        int result = -999;
        CryptdConfigurationRequest(operation, 0, nullptr, 0, &result, nullptr, nullptr, 0);
        return result;
    }
    static void Client(const std::string& command) {
        EXPECT_EQ(RunProgram("snclient", {command}).exitCode, 0) << command;
    }
    static void ChangeSetting(DWORD number) {
        SetRaw(HKEY_LOCAL_MACHINE, kSettings, TEXT("scan_level"), REG_DWORD, &number,
               sizeof number);
    }
    static UniqueHandle Connected() {
        return UniqueHandle(CreateFileW(kCryptdPipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                        OPEN_EXISTING, 0, nullptr));
    }
    static std::string Status() { return RunProgram("snclient", {"status"}).output; }

    // Not in a process that plays another part.
    std::optional<BackgroundProcess> service_ =
        Role().empty() ? std::optional(Start()) : std::nullopt;
};

TEST_F(CryptoServiceTest, GivesRandomBytesAndItsText) {
    Bytes one(250'000);
    Bytes other(250'000);
    EXPECT_EQ(CryptdGetRandomBytes(one.data(), 250'000, kCryptdRandomBytes, 5'000), 250'000);
    EXPECT_EQ(CryptdGetEntropyBytes(other.data(), 250'000), 250'000);
    // Nothing came twice, and nothing was left out.
    std::set<Bytes> pieces = {Bytes(8)};
    for (std::size_t at = 0; at < one.size(); at += 8) {
        EXPECT_TRUE(pieces.emplace(&one[at], &one[at] + 8).second);
        EXPECT_TRUE(pieces.emplace(&other[at], &other[at] + 8).second);
    }
    EXPECT_EQ(CryptdGetRandomBytes(one.data(), 8, 2, 5'000), kCryptdUnexpectedReply);
    for (const int count : {0, -1, 101'377}) {
        const CryptdMessage request = {CRYPTD_CTRL_CMD_ID_RANDOM_BYTES_REQ, count, 0, nullptr, 0};
        CryptdMessage reply = {0, 0, 0, one.data(), static_cast<DWORD>(one.size())};
        EXPECT_EQ(CryptdCallPipeServer(&request, &reply, 0), 0);
        EXPECT_EQ(reply.cmdId, 0U);
        EXPECT_EQ(reply.param1, ERROR_INVALID_PARAMETER);
    }
    for (int i = 0; i < 100; ++i) {  // more than it serves at one time
        ASSERT_EQ(CryptdGetRandomBytes(one.data(), 8, kCryptdRandomBytes, 5'000), 8);
    }
    WCHAR text[200] = {};
    EXPECT_EQ(CryptdQueryText(text, 200), 0);
    EXPECT_TRUE(WStringView(text).starts_with(TEXT("sncryptd, OpenSSL 3")));
}

TEST_F(CryptoServiceTest, AChangeIsBegunCommittedAndVerified) {
    if (Role() == "crashes") {
        EXPECT_EQ(Ask(7), 0);
        return;
    }
    ChangeSetting(3);
    EXPECT_EQ(Ask(6), -4);
    EXPECT_EQ(Ask(8), -1);
    EXPECT_EQ(Ask(7), 0);
    EXPECT_EQ(Ask(9), 1);
    Restart();  // in the middle of a change
    EXPECT_EQ(Ask(9), 1);
    EXPECT_EQ(Ask(8), 0);
    EXPECT_EQ(Ask(8), -1);
    EXPECT_EQ(Ask(6), 0);
    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(TEXT("secret")));
    Client("lock");
    EXPECT_EQ(Ask(6), 0);  // the client's state is no setting
    Client("unlock");
    ChangeSetting(4);
    EXPECT_EQ(Ask(6), -3);
    EXPECT_EQ(Ask(7), 0);
    EXPECT_EQ(Ask(8), 0);
    EXPECT_EQ(Ask(6), 0);
    // A tool that ends without a commit leaves nothing open, and others need not wait for it.
    RunRole("crashes");
    EXPECT_EQ(Ask(9), 0);
    EXPECT_EQ(Ask(8), -1);
    // A change of an ended process does not become that of another with its number.
    std::vector<BYTE> change(16);
    const DWORD own = GetCurrentProcessId();
    std::copy_n(reinterpret_cast<const BYTE*>(&own), sizeof own, change.begin());
    SetRaw(HKEY_LOCAL_MACHINE, kCryptdStateKey, TEXT("open_changes"), REG_BINARY, change);
    EXPECT_EQ(Ask(9), 0);
    EXPECT_EQ(Ask(8), -1);
    EXPECT_EQ(Ask(3), -5);
}

TEST_F(CryptoServiceTest, TheErrorModeOutlivesTheServiceUntilItIsCleared) {
    EXPECT_EQ(Status().find("FIPS error"), std::string::npos);
    EXPECT_EQ(CryptdFipsEnterErrorMode(TEXT("FIPS Error: \u00E4\tb.\n")), 0);
    const std::string line = "FIPS mode: no\nFIPS error: FIPS Error: \xC3\xA4\\x09b.\n";
    EXPECT_NE(Status().find(line), std::string::npos) << Status();
    Restart();
    EXPECT_NE(Status().find(line), std::string::npos);
    WCHAR text[200] = {};
    EXPECT_EQ(CryptdQueryText(text, 200), 0);
    EXPECT_TRUE(WStringView(text).ends_with(TEXT("FIPS error mode on")));
    Client("clear-fips-error");
    EXPECT_EQ(Status().find("FIPS error"), std::string::npos);
    Client("clear-fips-error");
    // One that cannot be read is in doubt.
    SetRaw(HKEY_LOCAL_MACHINE, kCryptdStateKey, TEXT("fips_error"), REG_BINARY, {});
    EXPECT_NE(Status().find("FIPS error"), std::string::npos);
}

TEST_F(CryptoServiceTest, HostileClientsHoldUpNobody) {
    std::vector<UniqueHandle> silent;
    while (silent.size() < 20) {  // as soon as the service is ready for one more
        if (UniqueHandle client = Connected()) silent.push_back(std::move(client));
    }
    BYTE bytes[32];
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(CryptdGetRandomBytes(bytes, 32, 0, 5'000), 32);
    EXPECT_LT(GetTickCount64() - start, 900U);  // before any silent client's time is up

    const auto send = [&](Bytes message) {
        DWORD replySize = 32;
        return CallPipe(kCryptdPipe, message.data(), static_cast<DWORD>(message.size()), bytes,
                        replySize, 5'000, PipeServer::kTrusted);
    };
    const Bytes good = Message(CRYPTD_CTRL_CMD_ID_RANDOM_BYTES_REQ, 8);
    EXPECT_EQ(send(good), DWORD{ERROR_SUCCESS});
    for (const std::size_t size : {0u, 23u, 25u, 150'000u}) {
        Bytes message = good;
        message.resize(size);
        EXPECT_EQ(send(message), DWORD{ERROR_BROKEN_PIPE}) << size;
    }
    for (const MessageHeader& wrong :
         {MessageHeader{.cmdId = 4, .param1 = 8, .payloadSize = 0xFFFFFFF0},
          MessageHeader{.version = 2, .cmdId = 4, .param1 = 8}}) {
        const auto* const header = reinterpret_cast<const BYTE*>(&wrong);
        EXPECT_EQ(send({header, header + sizeof wrong}), DWORD{ERROR_BROKEN_PIPE});
    }
    // Error modes without a whole, ended text; a command that there is none of.
    for (const auto& [command, payload] :
         {std::pair{8, Bytes{}}, {8, Bytes{'a', 0, 0}}, {8, Bytes{'a', 0}}, {99, Bytes{}}}) {
        const CryptdMessage request = {static_cast<DWORD>(command), 0, 0,
                                       const_cast<BYTE*>(payload.data()),
                                       static_cast<DWORD>(payload.size())};
        CryptdMessage reply = {};
        EXPECT_EQ(CryptdCallPipeServer(&request, &reply, 0), 0);
        EXPECT_EQ(reply.cmdId, 0U);
    }
    EXPECT_EQ(Status().find("FIPS error"), std::string::npos);
    EXPECT_EQ(CryptdGetRandomBytes(bytes, 32, 0, 5'000), 32);
}

TEST_F(CryptoServiceTest, AnAccountThatTakesEveryPlaceKeepsOutItselfAlone) {
    BYTE bytes[32];
    if (Role() == "other") {
        EXPECT_EQ(CryptdGetRandomBytes(bytes, 32, 0, 5'000), 32);
        return;
    }
    if (Role() == "flood") {  // asks for much and reads nothing, until it is killed
        const Bytes request = Message(CRYPTD_CTRL_CMD_ID_RANDOM_BYTES_REQ, 101'376);
        std::vector<UniqueHandle> clients(200);
        for (std::size_t i = 0;; i = (i + 1) % clients.size()) {
            clients[i] = Connected();
            DWORD written = 0;
            WriteFile(clients[i].get(), request.data(), 24, &written, nullptr);
            if (i == 100) Say("flooding");
        }
    }
    SKIP_UNLESS_ADMINISTRATOR();
    BackgroundProcess flood = StartRole("flood", As(12345));
    ASSERT_TRUE(flood.WaitForOutput("flooding"));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(CryptdGetRandomBytes(bytes, 32, 0, 5'000), 32);
    }
    RunRole("other", As(12346));
}

TEST_F(CryptoServiceTest, RightsFollowTheAccount) {
    BYTE bytes[8];
    WCHAR text[200];
    if (Role() == "guest") {
        EXPECT_EQ(CryptdGetRandomBytes(bytes, 8, 0, 5'000), MSGPIPE_BROKEN);
        EXPECT_EQ(CryptdQueryText(text, 200), MSGPIPE_BROKEN);
        EXPECT_EQ(CryptdFipsEnterErrorMode(TEXT("mine")), MSGPIPE_BROKEN);
        return;
    }
    if (Role() == "user") {
        // In the error mode there are none for anybody.
        EXPECT_EQ(CryptdGetRandomBytes(bytes, 8, 0, 5'000), -200);
        EXPECT_EQ(CryptdGetEntropyBytes(bytes, 8), -200);
        EXPECT_EQ(CryptdQueryText(text, 200), 0);
        for (const DWORD operation : {3U, 6U, 9U}) EXPECT_EQ(Ask(operation), -999);
        for (const DWORD operation : {7U, 7U, 8U, 8U}) EXPECT_EQ(Ask(operation), 0);  // a backup's
        EXPECT_EQ(CryptdFipsEnterErrorMode(TEXT("mine")), 100);
        EXPECT_EQ(RunProgram("snclient", {"clear-fips-error"}).exitCode, 1);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    ASSERT_EQ(CryptdFipsEnterErrorMode(TEXT("kept")), 0);
    RunRole("user", As(12345));
    RunRole("guest", As(kStranger));
    EXPECT_NE(Status().find("FIPS error: kept\n"), std::string::npos);
    EXPECT_EQ(Ask(9), 0);
    EXPECT_EQ(Ask(6), -4) << "only an administrator's commit is one";
}

TEST_F(CryptoServiceTest, ServesItsPipeAloneUntilItIsEnded) {
    EXPECT_EQ(RunProgram("sncryptd", {"x"}).exitCode, 2);
    EXPECT_EQ(RunProgram("sncryptd", {"--help"}).exitCode, 0);
    service_->SendSignal(SIGTERM);
    EXPECT_EQ(service_->Wait().signal, SIGTERM);
    BYTE byte = 0;
    EXPECT_EQ(CryptdGetRandomBytes(&byte, 1, 0, 5'000), MSGPIPE_NO_SERVER);
    SKIP_WITHOUT(kFirstInstances);
    service_ = Start();
    EXPECT_EQ(RunProgram("sncryptd", {}).exitCode, 1);
}

}  // namespace
