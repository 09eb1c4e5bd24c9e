#include <windows.h>

#include <thread>

#include "common/handles.h"
#include "common/security.h"
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

void Send(HANDLE end, const std::string& message) {
    DWORD size = 0;
    EXPECT_TRUE(WriteFile(end, message.data(), static_cast<DWORD>(message.size()), &size, nullptr));
}

// What comes next, up to so many bytes, with "..." where that is not the whole message; an
// ErrorText when nothing comes.
std::string Receive(HANDLE end, DWORD capacity = 300'000) {
    std::string message(capacity, '\0');
    DWORD size = 0;
    const BOOL isWhole = ReadFile(end, message.data(), capacity, &size, nullptr);
    if (!isWhole && GetLastError() != ERROR_MORE_DATA) return ErrorText(GetLastError());
    return message.substr(0, size) + (isWhole ? "" : "...");
}

// Answers requests of one client after another, each twice over, until one says "end".
void Serve(HANDLE server) {
    while (Accept(server)) {
        std::string request;
        while (!(request = Receive(server)).starts_with("error")) {
            Send(server, request + request);
            if (request == "end") return;
        }
        EXPECT_EQ(request, ErrorText(ERROR_BROKEN_PIPE));
        EXPECT_TRUE(DisconnectNamedPipe(server));
    }
}

class Pipe : public MachineTest {};

TEST_F(Pipe, MessagesKeepTheirBoundsAndAnyNumberOfClientsIsServed) {
    const UniqueHandle server(NewServer());
    EXPECT_EQ(ErrorOf(NewServer()), ERROR_PIPE_BUSY);
    std::thread serving(Serve, server.get());
    for (const std::string& request :
         {std::string("x"), std::string(), std::string(101'376, 'r'), std::string("end")}) {
        EXPECT_TRUE(WaitNamedPipeW(kName, 10'000));
        const UniqueHandle client(NewClient());
        EXPECT_EQ(Ask(client.get(), "first"), "firstfirst");
        EXPECT_EQ(Ask(client.get(), request), request + request);
    }
    serving.join();
}

TEST_F(Pipe, TheRestOfALargeMessageIsReadNext) {
    const UniqueHandle server(NewServer());
    const UniqueHandle client(
        CreateFileW(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(client);
    EXPECT_TRUE(Accept(server.get()));
    Send(client.get(), "abcdef");
    Send(client.get(), "g");
    for (const char* part : {"abcd...", "ef", "g"}) EXPECT_EQ(Receive(server.get(), 4), part);
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
    EXPECT_EQ(Receive(server.get()), "first");

    // A reply that comes late is the next reading's, which is pending until then.
    char buffer[16];
    DWORD size = 0;
    OVERLAPPED reading{};
    EXPECT_EQ(ErrorOf(ReadFile(client.get(), buffer, sizeof buffer, nullptr, &reading)),
              ERROR_IO_PENDING);
    EXPECT_EQ(ErrorOf(GetOverlappedResult(client.get(), &reading, &size, FALSE)),
              ERROR_IO_INCOMPLETE);
    Send(server.get(), "late");
    EXPECT_TRUE(GetOverlappedResult(client.get(), &reading, &size, TRUE));
    EXPECT_EQ(std::string(buffer, size), "late");
}

TEST_F(Pipe, AKilledServerBreaksThePipeAndFreesItsName) {
    if (Role() == "server") {
        const UniqueHandle server(NewServer());
        Say("serving");
        Accept(server.get());
        return Sleep(60'000);
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
}

TEST_F(Pipe, HasOneFirstInstance) {
    SKIP_WITHOUT(kFirstInstances);
    const UniqueHandle server(NewServer(2));
    EXPECT_TRUE(server);
    EXPECT_EQ(ErrorOf(NewServer(2, nullptr, FILE_FLAG_FIRST_PIPE_INSTANCE)), ERROR_ACCESS_DENIED);
}

BOOL IsMember(WELL_KNOWN_SID_TYPE group, HANDLE token = nullptr) {
    BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD size = sizeof sid;
    BOOL isMember = FALSE;
    EXPECT_TRUE(CreateWellKnownSid(group, nullptr, sid, &size));
    EXPECT_TRUE(CheckTokenMembership(token, sid, &isMember));
    return isMember;
}

TEST_F(Pipe, AServerIsOpenToWhomItSaysAndLearnsWhoTheyAreWithoutBecomingThem) {
    if (Role() == "refused") return ExpectNoClient(ERROR_ACCESS_DENIED);
    if (!Role().empty()) {
        EXPECT_TRUE(WaitNamedPipeW(kName, 10'000));  // also for what the last client has left
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
    EXPECT_EQ(ErrorOf(ImpersonateNamedPipeClient(server.get())), ERROR_PIPE_LISTENING);
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
        ASSERT_EQ(Receive(server.get()), "who am I?");
        ULONG process = 0;
        EXPECT_TRUE(GetNamedPipeClientProcessId(server.get(), &process));
        EXPECT_EQ(process, client.Id());
        ASSERT_TRUE(ImpersonateNamedPipeClient(server.get()));
        UniqueHandle token;
        EXPECT_EQ(ErrorOf(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, token.put())),
                  ERROR_BAD_IMPERSONATION_LEVEL);
        EXPECT_TRUE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put()));
        EXPECT_TRUE(RevertToSelf());
        const HANDLE asked = token.get();
        EXPECT_EQ(IsMember(WinBuiltinAdministratorsSid, asked) != FALSE, isAdministrator) << role;
        EXPECT_EQ(IsMember(WinLocalSystemSid, asked) != FALSE, isAdministrator) << role;
        EXPECT_EQ(IsMember(WinAuthenticatedUserSid, asked) != FALSE, isUser) << role;
        EXPECT_TRUE(IsMember(WinLocalSystemSid));
        Send(server.get(), "ok");
        EXPECT_EQ(client.Wait().exitCode, 0);
        EXPECT_TRUE(DisconnectNamedPipe(server.get()));
    }
}

}  // namespace
