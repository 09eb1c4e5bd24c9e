// Attacks: what an account without rights can do to runs that have them, by being first, by being
// faster, or by cutting files.
#include <utilsdll.h>

#include <functional>
#include <thread>

#include "common/handles.h"
#include "common/pipe_call.h"
#include "common/security.h"
#include "tests/support/accounts.h"
#include "tests/support/cipher.h"
#include "tests/support/last_error.h"
#include "tests/support/machine.h"
#include "tests/support/wide.h"

namespace fs = std::filesystem;

namespace {

// --- The server of a pipe -----------------------------------------------------------------------

class PipeCallTest : public MachineTest {
  public:
    static constexpr WCHAR kPipe[] = TEXT("\\\\.\\pipe\\SN_test");

    static UniqueHandle Serve() {
        AccessList callers(kServedByAdministrators);
        return UniqueHandle(CreateNamedPipeW(kPipe, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                             PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, 1, 0, 0, 0,
                                             callers.get()));
    }
    // Answers one client; false when it did not ask for `request`.
    static bool Answer(HANDLE server, const std::string& request) {
        char asked[16];
        DWORD size = 0;
        const bool isIt =
            WaitForClient(server, kLimit) == ERROR_SUCCESS &&
            ReceiveMessage(server, asked, sizeof asked, size, kLimit) == ERROR_SUCCESS &&
            std::string(asked, size) == request &&
            SendMessageTo(server, "reply", 5, kLimit) == ERROR_SUCCESS;
        ReceiveMessage(server, asked, sizeof asked, size, kLimit);
        DisconnectNamedPipe(server);
        return isIt;
    }
    static DWORD Call(const std::string& request, DWORD limit = kLimit) {
        char reply[16];
        DWORD size = sizeof reply;
        const DWORD error = CallPipe(kPipe, request.data(), static_cast<DWORD>(request.size()),
                                     reply, size, limit, PipeServer::kTrusted);
        EXPECT_TRUE(error != ERROR_SUCCESS || std::string(reply, size) == "reply");
        return error;
    }
    static constexpr DWORD kLimit = 10'000;
};

TEST_F(PipeCallTest, WaitsForAnInstanceWithinItsTime) {
    const UniqueHandle server = Serve();
    const UniqueHandle first(
        CreateFileW(kPipe, kPipeCallerRights, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(first);
    ASSERT_EQ(WaitForClient(server.get(), kLimit), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Call("early", 100), DWORD{ERROR_SEM_TIMEOUT});
    std::thread serving([&] {
        Sleep(50);
        EXPECT_TRUE(DisconnectNamedPipe(server.get()));
        EXPECT_TRUE(Answer(server.get(), "later")) << "who did not wait is not served";
    });
    EXPECT_EQ(Call("later"), DWORD{ERROR_SUCCESS});
    serving.join();
}

// Whoever may write in the machine's folder can be first to serve a name.
TEST_F(PipeCallTest, OnlyTheSystemAndAdministratorsAreTakenForTheServer) {
    if (Role() == "server") {
        const UniqueHandle server = Serve();
        Say("serving");
        for (;;) Answer(server.get(), "request");
    }
    SKIP_UNLESS_ADMINISTRATOR();
    { const UniqueHandle makesTheFolder = Serve(); }
    {
        BackgroundProcess stranger = StartRole("server", As(12345));
        ASSERT_TRUE(stranger.WaitForOutput("serving"));
        for (int i = 0; i < 50; ++i) EXPECT_EQ(Call("request"), DWORD{ERROR_FILE_NOT_FOUND});
        EXPECT_FALSE(Serve()) << "another's name";
    }
    BackgroundProcess administrator = StartRole("server");
    ASSERT_TRUE(administrator.WaitForOutput("serving"));
    EXPECT_EQ(Call("request"), DWORD{ERROR_SUCCESS});
}

// Not even between two clients.
TEST_F(PipeCallTest, TheNameIsNeverFreeWhileTheServerRuns) {
    if (Role() == "server") {
        const UniqueHandle server = Serve();
        Say("serving");
        for (;;) Answer(server.get(), "request");
    }
    if (Role() == "stranger") {
        Say("trying");
        UniqueHandle taken;
        while (!taken) taken = Serve();
        Say("taken");
        for (;;) Answer(taken.get(), "request");
    }
    SKIP_UNLESS_ADMINISTRATOR();
    BackgroundProcess administrator = StartRole("server");
    ASSERT_TRUE(administrator.WaitForOutput("serving"));
    BackgroundProcess stranger = StartRole("stranger", As(12345));
    ASSERT_TRUE(stranger.WaitForOutput("trying"));
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(Call("request"), DWORD{ERROR_SUCCESS}) << i;
    }
    EXPECT_EQ(stranger.Output().find("taken"), std::string::npos);
}

// --- Objects and folders of the machine ---------------------------------------------------------

using ObjectTest = MachineTest;

TEST_F(ObjectTest, AFileThatIsCutOrFilledIsAnErrorOfItsUsers) {
    const fs::path run = EndpointFolder() / "run";
    const fs::path files[] = {run / "event", run / "mutex"};
    if (Role() == "stranger") {
        for (const fs::path& file : files) fs::resize_file(file, 0);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    EveryoneAccess everyone;
    const UniqueHandle event(CreateEventW(everyone.get(), FALSE, TRUE, TEXT("event")));
    const UniqueHandle mutex(CreateMutexW(everyone.get(), FALSE, TEXT("mutex")));
    RunRole("stranger", As(12345));
    for (const HANDLE object : {event.get(), mutex.get()}) {
        EXPECT_EQ(WaitForSingleObject(object, 5'000), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_INVALID});
    }
    EXPECT_EQ(ErrorOf(SetEvent(event.get())), ERROR_FILE_INVALID);
    EXPECT_EQ(ErrorOf(OpenEventW(SYNCHRONIZE, FALSE, TEXT("event"))), ERROR_FILE_INVALID);
    // One who waits already learns of it.
    const UniqueHandle waited(CreateEventW(everyone.get(), TRUE, FALSE, TEXT("waited")));
    std::thread cutting([&] {
        Sleep(100);
        fs::resize_file(run / "waited", 4);
    });
    EXPECT_EQ(WaitForSingleObject(waited.get(), 10'000), WAIT_FAILED);
    cutting.join();
    // Bytes that no object has are no harm either.
    WriteWholeFile(files[1], std::string(100, '\xFF'));
    EXPECT_EQ(WaitForSingleObject(mutex.get(), 0), WAIT_ABANDONED);
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
}

TEST_F(ObjectTest, AFolderThatAnotherAccountMadeFirstIsRefused) {
    if (Role() == "squatter") {
        fs::create_directory(EndpointFolder() / "run");
        fs::create_directory(EndpointFolder() / "run" / "pipes");
        return;
    }
    if (Role() == "user") {
        EXPECT_EQ(ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, TEXT("mutex"))), ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(ErrorOf(CreateMutexW(nullptr, FALSE, TEXT("mutex"))), ERROR_ACCESS_DENIED);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    fs::permissions(EndpointFolder(), fs::perms(01777));
    RunRole("user", As(12345));
    RunRole("squatter", As(12345));
    EXPECT_EQ(ErrorOf(CreateMutexW(nullptr, FALSE, TEXT("mutex"))), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, TEXT("mutex"))), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOf(PipeCallTest::Serve().release()), ERROR_ACCESS_DENIED);
    EXPECT_EQ(PipeCallTest::Call("request"), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(ObjectTest, ABypassThatAnotherAccountMadeIsNotHeld) {
    EveryoneAccess everyone;
    const WCHAR* const name = TEXT("Global\\SN_BYPASS_FSFILTER");
    if (Role() == "user") {
        const UniqueHandle event(CreateEventW(everyone.get(), TRUE, FALSE, name));
        Say("holding");
        Sleep(INFINITE);
    }
    SKIP_UNLESS_ADMINISTRATOR();
    const fs::path log = EndpointFolder() / "ProgramData" / "Sentrel" / "logs" / "utilsdll.log";
    { const UniqueHandle makesTheFolder(CreateEventW(nullptr, TRUE, FALSE, name)); }
    BackgroundProcess user = StartRole("user", As(12345));
    ASSERT_TRUE(user.WaitForOutput("holding"));
    EXPECT_EQ(bBypassFsfilter(), INVALID_HANDLE_VALUE);
    EXPECT_NE(ReadWholeFile(log).find(" ERROR Global\\SN_BYPASS_FSFILTER "), std::string::npos);
    EXPECT_TRUE(UniqueHandle(bBypassGuardlet()));
    user.Kill();
    EXPECT_TRUE(UniqueHandle(bBypassFsfilter()));
}

// --- The client's folders -----------------------------------------------------------------------

// What others could have made where the client keeps its logs and its secret.
class ClientFolderTest : public MachineTest {
  protected:
    static constexpr unsigned kUser = 12345;
    static constexpr const WCHAR* kComponent = TEXT("test");

    // Writes a line; false when there is no log.
    static bool Log(const std::string& text) {
        const SN_LOG_HANDLE log = log_initialize(kComponent);
        if (log == nullptr) return false;
        log_error_fmt(log, TEXT("%s"), Wide(text).c_str());
        log_deinitialize(log);
        return true;
    }
    // A process asks for the secret once: another one is played for each answer.
    static bool HasSecret(const ProcessOptions& options = {}) {
        return StartRole("secret", options).Wait().exitCode == 0;
    }
    static void AskForSecret() { EXPECT_NE(Encrypted("", nullptr), ""); }

    const fs::path data_ = EndpointFolder() / "ProgramData" / "Sentrel";
    const fs::path logs_ = data_ / "logs";
    const fs::path log_ = logs_ / "test.log";
    const fs::path secret_ = data_ / "machine.key";
    const fs::path precious_ = ScratchFolder() / "precious";
};

TEST_F(ClientFolderTest, OrdinaryAccountsAppendToTheLogAndChangeNothingElse) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "secret") return AskForSecret();
    if (Role() == "user") {
        EXPECT_TRUE(Log("user"));
        std::error_code error;
        for (const fs::path& file : {log_, secret_}) {
            EXPECT_EQ(ReadWholeFile(file), "");
            EXPECT_FALSE(fs::remove(file, error));
            fs::create_hard_link(file, ScratchFolder() / "link", error);
            EXPECT_TRUE(error) << file;
            fs::rename(file, data_ / "moved", error);
            EXPECT_TRUE(error) << file;
        }
        fs::rename(logs_, data_ / "moved", error);
        EXPECT_TRUE(error);
        EXPECT_FALSE(fs::create_directory(logs_ / "folder", error));
        return;
    }
    // A folder that an earlier version left open for everybody is closed.
    ASSERT_TRUE(Log("first"));
    ASSERT_TRUE(HasSecret());
    for (const fs::path& path : {data_, logs_, secret_}) fs::permissions(path, fs::perms::all);
    ASSERT_TRUE(Log("second"));
    ASSERT_TRUE(HasSecret());
    EXPECT_FALSE(HasSecret(As(kUser)));
    RunRole("user", As(kUser));
    for (const char* line : {" ERROR first\r\n", " ERROR second\r\n", " ERROR user\r\n"}) {
        EXPECT_NE(ReadWholeFile(log_).find(line), std::string::npos) << line;
    }
}

TEST_F(ClientFolderTest, WhatAnotherAccountPlantedIsRefused) {
    SKIP_UNLESS_ADMINISTRATOR();
    const fs::path own = ScratchFolder() / "own";
    if (Role() == "secret") return AskForSecret();
    if (Role() == "user") {
        fs::create_directories(logs_);
        WriteWholeFile(secret_, std::string(32, 'k'));
        EXPECT_FALSE(Log("user")) << "its own folder is not the client's";
        return;
    }
    const auto putLink = [&](const fs::path& path) { fs::create_symlink(precious_, path); };
    const auto putName = [&](const fs::path& path) { fs::create_hard_link(precious_, path); };
    const auto putFile = [](const fs::path& path) {
        WriteWholeFile(path, std::string(32, 'k'));
        GiveTo(path, kUser);
    };
    const auto putFolder = [](const fs::path& path) {
        fs::create_directory(path);
        GiveTo(path, kUser);
    };
    const auto putFolderLink = [&](const fs::path& path) {
        fs::create_directory_symlink(own, path);
    };
    const struct {
        fs::path path;
        std::function<void(const fs::path& path)> plant;
    } attacks[] = {
        {log_, putLink},    {log_, putName},        {log_, putFile},        {log_, putFolder},
        {logs_, putFolder}, {logs_, putFolderLink}, {data_, putFolderLink}, {secret_, putLink},
        {secret_, putName}, {secret_, putFile},     {data_, putFolder},
    };
    fs::create_directory(own);
    for (const auto& attack : attacks) {
        SCOPED_TRACE(testing::Message() << attack.path << ", " << &attack - attacks);
        fs::remove_all(data_);
        ASSERT_TRUE(Log("before") && HasSecret());
        WriteWholeFile(precious_, std::string(32, 'p'));
        fs::remove_all(attack.path);
        attack.plant(attack.path);
        EXPECT_EQ(Log("later"), attack.path == secret_);
        EXPECT_EQ(HasSecret(), attack.path == log_ || attack.path == logs_);
        EXPECT_EQ(ReadWholeFile(precious_), std::string(32, 'p'));
        EXPECT_TRUE(fs::is_empty(own));
    }
    fs::remove_all(data_);
    fs::permissions(data_.parent_path(), fs::perms(01777));
    RunRole("user", As(kUser));
    EXPECT_FALSE(HasSecret(As(kUser)));
    EXPECT_FALSE(Log("later") || HasSecret());
    EXPECT_TRUE(fs::is_empty(logs_));
}

}  // namespace
