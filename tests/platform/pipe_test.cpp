#include <windows.h>

#include <thread>

#include "common/handles.h"
#include "common/security.h"
#include "tests/support/faults.h"
#include "tests/support/last_error.h"
#include "tests/support/machine.h"

namespace {

constexpr WCHAR kName[] = TEXT("\\\\.\\pipe\\SN_{AA18B4A3-A827-45C9-8D3E-E01120E92B44}_test");

HANDLE NewServer(DWORD instances = 1, SECURITY_ATTRIBUTES* attributes = nullptr,
                 DWORD openFlags = 0) {
    return CreateNamedPipeW(kName, PIPE_ACCESS_DUPLEX | openFlags,
                            PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE, instances, 4096, 4096, 0,
                            attributes);
}

// A client's end that reads messages, for overlapped operations; invalid on failure.
HANDLE NewClient() {
    const HANDLE pipe = CreateFileW(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OVERLAPPED, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) return pipe;
    DWORD mode = PIPE_READMODE_MESSAGE;
    EXPECT_TRUE(SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr));
    return pipe;
}

void ExpectNoClient(DWORD error) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(ErrorOf(NewClient()), error);
}

// Takes a client; an early one is as good as one that is still to come.
bool Accept(HANDLE server) {
    return ConnectNamedPipe(server, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED;
}

std::string ErrorText(DWORD error) {
    return "error " + std::to_string(error);
}

// Sends a request and waits for its reply; its ErrorText when there is none in time.
std::string Ask(HANDLE client, std::string request, DWORD limit = 10'000) {
    std::string reply(300'000, '\0');
    const UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    OVERLAPPED overlapped{};
    overlapped.hEvent = event.get();
    DWORD size = 0;
    if (!TransactNamedPipe(client, request.data(), static_cast<DWORD>(request.size()), reply.data(),
                           static_cast<DWORD>(reply.size()), nullptr, &overlapped)) {
        if (GetLastError() != ERROR_IO_PENDING) return ErrorText(GetLastError());
        if (WaitForSingleObject(event.get(), limit) == WAIT_TIMEOUT) {
            EXPECT_TRUE(CancelIoEx(client, &overlapped));
        }
    }
    if (!GetOverlappedResult(client, &overlapped, &size, TRUE)) {
        return ErrorText(GetLastError());
    }
    return reply.substr(0, size);
}

// Answers requests of one client after another, each twice over, until one says "end".
void Serve(HANDLE server) {
    std::vector<char> buffer(300'000);
    DWORD size = 0;
    while (Accept(server)) {
        while (ReadFile(server, buffer.data(), static_cast<DWORD>(buffer.size()), &size, nullptr)) {
            const std::string request(buffer.data(), size);
            const std::string reply = request + request;
            EXPECT_TRUE(
                WriteFile(server, reply.data(), static_cast<DWORD>(reply.size()), &size, nullptr));
            if (request == "end") return;
        }
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
        EXPECT_TRUE(DisconnectNamedPipe(server));
    }
}

class Pipe : public MachineTest {};

TEST_F(Pipe, MessagesKeepTheirBoundsAndAnyNumberOfClientsIsServed) {
    const UniqueHandle server(NewServer());
    std::thread serving(Serve, server.get());
    for (const std::string& request :
         {std::string("x"), std::string(), std::string(101'376, 'r'), std::string("last")}) {
        EXPECT_TRUE(WaitNamedPipeW(kName, 10'000));
        const UniqueHandle client(NewClient());
        EXPECT_EQ(Ask(client.get(), request), request + request);
        EXPECT_EQ(Ask(client.get(), "again"), "againagain");
    }
    char request[] = "end";
    char small[4];
    DWORD size = 0;
    EXPECT_EQ(ErrorOf(CallNamedPipeW(kName, request, 3, small, sizeof small, &size, 10'000)),
              DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(std::string(small, size), "ende");
    serving.join();
}

TEST_F(Pipe, TheRestOfALargeMessageIsReadNext) {
    const UniqueHandle server(NewServer());
    const UniqueHandle client(
        CreateFileW(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(client);
    EXPECT_TRUE(Accept(server.get()));
    // What comes, by four bytes at most, and the error of the reading.
    const auto read = [](const UniqueHandle& end) {
        char part[4];
        DWORD size = 0;
        const BOOL succeeds = ReadFile(end.get(), part, 4, &size, nullptr);
        return std::pair(std::string(part, size), succeeds ? DWORD{0} : GetLastError());
    };
    DWORD size = 0;
    ASSERT_TRUE(WriteFile(client.get(), "abcdef", 6, &size, nullptr));
    ASSERT_TRUE(WriteFile(client.get(), "g", 1, &size, nullptr));
    EXPECT_EQ(read(server), std::pair(std::string("abcd"), DWORD{ERROR_MORE_DATA}));
    EXPECT_EQ(read(server), std::pair(std::string("ef"), DWORD{0}));
    EXPECT_EQ(read(server), std::pair(std::string("g"), DWORD{0}));
    // A client that has not asked for messages takes what there is, without an error.
    ASSERT_TRUE(WriteFile(server.get(), "abcdef", 6, &size, nullptr));
    EXPECT_EQ(read(client), std::pair(std::string("abcd"), DWORD{0}));
}

TEST_F(Pipe, AReplyThatDoesNotComeEndsTheWaitInTimeAndTheRequestStands) {
    const UniqueHandle server(NewServer());
    const UniqueHandle client(NewClient());
    EXPECT_TRUE(Accept(server.get()));
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(Ask(client.get(), "first", 200), ErrorText(ERROR_OPERATION_ABORTED));
    const ULONGLONG taken = GetTickCount64() - start;
    EXPECT_GE(taken, 190U);
    EXPECT_LT(taken, 5'000U);
    char buffer[16];
    DWORD size = 0;
    EXPECT_TRUE(ReadFile(server.get(), buffer, sizeof buffer, &size, nullptr));
    EXPECT_EQ(std::string(buffer, size), "first");

    // A reply that comes late is the next reading's, which is pending until then.
    OVERLAPPED reading{};
    EXPECT_EQ(ErrorOf(ReadFile(client.get(), buffer, sizeof buffer, nullptr, &reading)),
              DWORD{ERROR_IO_PENDING});
    EXPECT_EQ(ErrorOf(GetOverlappedResult(client.get(), &reading, &size, FALSE)),
              DWORD{ERROR_IO_INCOMPLETE});
    EXPECT_TRUE(WriteFile(server.get(), "late", 4, &size, nullptr));
    EXPECT_TRUE(GetOverlappedResult(client.get(), &reading, &size, TRUE));
    EXPECT_EQ(std::string(buffer, size), "late");
}

TEST_F(Pipe, WithoutAFreeInstanceAClientIsToldWhy) {
    const UniqueHandle first(NewServer(2));
    const UniqueHandle second(NewServer(2));
    EXPECT_EQ(ErrorOf(NewServer(2)), DWORD{ERROR_PIPE_BUSY});
    const UniqueHandle one(NewClient());
    const UniqueHandle other(NewClient());
    ASSERT_TRUE(one);
    ASSERT_TRUE(other);
    ExpectNoClient(ERROR_PIPE_BUSY);
    ASSERT_TRUE(Accept(first.get()));
    ASSERT_TRUE(Accept(second.get()));
    ExpectNoClient(ERROR_PIPE_BUSY);
    EXPECT_EQ(ErrorOf(WaitNamedPipeW(kName, 50)), DWORD{ERROR_SEM_TIMEOUT});

    std::thread freeing([&] {
        Sleep(50);
        EXPECT_TRUE(DisconnectNamedPipe(second.get()));
        EXPECT_TRUE(Accept(second.get()));
    });
    EXPECT_TRUE(WaitNamedPipeW(kName, 10'000));
    const UniqueHandle next(NewClient());
    EXPECT_TRUE(next);
    freeing.join();
}

TEST_F(Pipe, AKilledServerBreaksThePipeAndFreesItsName) {
    if (Role() == "server") {
        const UniqueHandle server(NewServer());
        Say("serving");
        Accept(server.get());
        Sleep(60'000);
        return;
    }
    BackgroundProcess process = StartRole("server");
    ASSERT_TRUE(process.WaitForOutput("serving"));
    EXPECT_EQ(NewServer(), INVALID_HANDLE_VALUE);
    const UniqueHandle client(NewClient());
    std::thread killing([&] {
        Sleep(100);
        process.Kill();
    });
    EXPECT_EQ(Ask(client.get(), "?"), ErrorText(ERROR_BROKEN_PIPE));
    killing.join();
    ExpectNoClient(ERROR_FILE_NOT_FOUND);
    const UniqueHandle server(NewServer(2, nullptr, FILE_FLAG_FIRST_PIPE_INSTANCE));
    EXPECT_TRUE(server);
    EXPECT_TRUE(UniqueHandle(NewClient()));
    SKIP_WITHOUT(kFirstInstances);
    EXPECT_EQ(ErrorOf(NewServer(2, nullptr, FILE_FLAG_FIRST_PIPE_INSTANCE)),
              DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(Pipe, WithoutAThreadAnOverlappedOperationFailsAndNothingElseDoes) {
    if (!Role().empty()) {
        const UniqueHandle client(NewClient());
        RunOutOfThreads();
        for (const char* request : {"first", "second"}) {
            EXPECT_EQ(Ask(client.get(), request), ErrorText(ERROR_NO_SYSTEM_RESOURCES));
        }
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    EveryoneAccess everyone;
    const UniqueHandle server(NewServer(1, everyone.get()));
    RunRole("client", As(kStranger));
}

BOOL IsMember(WELL_KNOWN_SID_TYPE group) {
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof sid;
    BOOL isMember = FALSE;
    EXPECT_TRUE(CreateWellKnownSid(group, nullptr, sid, &size));
    EXPECT_TRUE(CheckTokenMembership(nullptr, sid, &isMember));
    return isMember;
}

TEST_F(Pipe, AServerIsOpenToWhomItSaysAndLearnsWhoTheyAreWithoutBecomingThem) {
    if (Role() == "refused") return ExpectNoClient(ERROR_ACCESS_DENIED);
    if (!Role().empty()) {
        const UniqueHandle client(NewClient());
        EXPECT_EQ(Ask(client.get(), "who am I?"), "ok");
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    UniqueHandle server(NewServer());
    RunRole("refused", As(kStranger));
    EveryoneAccess everyone;
    server.reset();
    server.reset(NewServer(1, everyone.get()));
    EXPECT_EQ(ErrorOf(ImpersonateNamedPipeClient(server.get())), DWORD{ERROR_PIPE_LISTENING});
    const struct {
        const char* role;
        unsigned account;
        bool isAdministrator;
        bool isUser;
    } clients[] = {{"administrator", 0, true, true},
                   {"user", 12345, false, true},
                   {"guest", kStranger, false, false}};
    for (const auto& [role, account, isAdministrator, isUser] : clients) {
        BackgroundProcess client = StartRole(role, As(account));
        ASSERT_TRUE(Accept(server.get()));
        char request[16];
        DWORD size = 0;
        ASSERT_TRUE(ReadFile(server.get(), request, sizeof request, &size, nullptr));
        ULONG process = 0;
        EXPECT_TRUE(GetNamedPipeClientProcessId(server.get(), &process));
        EXPECT_EQ(process, client.Id());
        ASSERT_TRUE(ImpersonateNamedPipeClient(server.get()));
        EXPECT_EQ(IsMember(WinBuiltinAdministratorsSid) != FALSE, isAdministrator) << role;
        EXPECT_EQ(IsMember(WinLocalSystemSid) != FALSE, isAdministrator) << role;
        EXPECT_EQ(IsMember(WinAuthenticatedUserSid) != FALSE, isUser) << role;
        EXPECT_TRUE(RevertToSelf());
        EXPECT_TRUE(IsMember(WinLocalSystemSid));
        EXPECT_TRUE(WriteFile(server.get(), "ok", 2, &size, nullptr));
        EXPECT_EQ(client.Wait().exitCode, 0);
        EXPECT_TRUE(DisconnectNamedPipe(server.get()));
    }
}

}  // namespace
