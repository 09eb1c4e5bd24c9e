#include <windows.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "common/handles.h"
#include "tests/support/machine.h"

namespace {

constexpr WCHAR kName[] = TEXT("\\\\.\\pipe\\SN_{AA18B4A3-A827-45C9-8D3E-E01120E92B44}_test");
constexpr Account kStranger{65534, 65534};

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
    const HANDLE pipe = NewClient();
    EXPECT_EQ(pipe, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), error);
}

// Takes a client; an early one is as good as one that is still to come.
bool Accept(HANDLE server) {
    return ConnectNamedPipe(server, nullptr) || GetLastError() == ERROR_PIPE_CONNECTED;
}

// Sends a request and waits for its reply; "error N" when there is none in time.
std::string Ask(HANDLE client, std::string request, DWORD limit = 10'000) {
    std::string reply(300'000, '\0');
    const UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    OVERLAPPED overlapped{};
    overlapped.hEvent = event.get();
    DWORD size = 0;
    if (!TransactNamedPipe(client, request.data(), static_cast<DWORD>(request.size()), reply.data(),
                           static_cast<DWORD>(reply.size()), nullptr, &overlapped)) {
        if (GetLastError() != ERROR_IO_PENDING) return "error " + std::to_string(GetLastError());
        if (WaitForSingleObject(event.get(), limit) == WAIT_TIMEOUT) {
            EXPECT_FALSE(GetOverlappedResult(client, &overlapped, &size, FALSE));
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_IO_INCOMPLETE));
            EXPECT_TRUE(CancelIoEx(client, &overlapped));
        }
    }
    if (!GetOverlappedResult(client, &overlapped, &size, TRUE)) {
        return "error " + std::to_string(GetLastError());
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
    EXPECT_FALSE(CallNamedPipeW(kName, request, 3, small, sizeof small, &size, 10'000));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MORE_DATA));
    EXPECT_EQ(std::string(small, size), "ende");
    serving.join();
}

TEST_F(Pipe, TheRestOfALargeMessageIsReadNext) {
    const UniqueHandle server(NewServer());
    const UniqueHandle client(
        CreateFileW(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(client);
    EXPECT_TRUE(Accept(server.get()));
    char part[4];
    DWORD size = 0;
    ASSERT_TRUE(WriteFile(client.get(), "abcdef", 6, &size, nullptr));
    ASSERT_TRUE(WriteFile(client.get(), "g", 1, &size, nullptr));
    EXPECT_FALSE(ReadFile(server.get(), part, 4, &size, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MORE_DATA));
    EXPECT_EQ(std::string(part, size), "abcd");
    EXPECT_TRUE(ReadFile(server.get(), part, 4, &size, nullptr));
    EXPECT_EQ(std::string(part, size), "ef");
    EXPECT_TRUE(ReadFile(server.get(), part, 4, &size, nullptr));
    EXPECT_EQ(std::string(part, size), "g");
    // A client that has not asked for messages takes what there is, without an error.
    ASSERT_TRUE(WriteFile(server.get(), "abcdef", 6, &size, nullptr));
    EXPECT_TRUE(ReadFile(client.get(), part, 4, &size, nullptr));
    EXPECT_EQ(std::string(part, size), "abcd");
}

TEST_F(Pipe, AReplyThatDoesNotComeEndsTheWaitInTimeAndTheRequestStands) {
    const UniqueHandle server(NewServer());
    const UniqueHandle client(NewClient());
    EXPECT_TRUE(Accept(server.get()));
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(Ask(client.get(), "first", 200), "error " + std::to_string(ERROR_OPERATION_ABORTED));
    const ULONGLONG taken = GetTickCount64() - start;
    EXPECT_GE(taken, 190U);
    EXPECT_LT(taken, 5'000U);
    char buffer[16];
    DWORD size = 0;
    EXPECT_TRUE(ReadFile(server.get(), buffer, sizeof buffer, &size, nullptr));
    EXPECT_EQ(std::string(buffer, size), "first");
}

TEST_F(Pipe, WithoutAFreeInstanceAClientIsToldWhy) {
    ExpectNoClient(ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(WaitNamedPipeW(kName, 50));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));

    UniqueHandle first(NewServer(2));
    UniqueHandle second(NewServer(2));
    EXPECT_EQ(NewServer(2), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PIPE_BUSY));
    EXPECT_EQ(NewServer(2, nullptr, FILE_FLAG_FIRST_PIPE_INSTANCE), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    const UniqueHandle one(NewClient());
    const UniqueHandle other(NewClient());
    ASSERT_TRUE(one);
    ASSERT_TRUE(other);
    ExpectNoClient(ERROR_PIPE_BUSY);
    ASSERT_TRUE(Accept(first.get()));
    ASSERT_TRUE(Accept(second.get()));
    ExpectNoClient(ERROR_PIPE_BUSY);
    EXPECT_FALSE(WaitNamedPipeW(kName, 50));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SEM_TIMEOUT));

    std::thread freeing([&] {
        Sleep(50);
        EXPECT_TRUE(DisconnectNamedPipe(second.get()));
        EXPECT_TRUE(Accept(second.get()));
    });
    EXPECT_TRUE(WaitNamedPipeW(kName, 10'000));
    const UniqueHandle next(NewClient());
    EXPECT_TRUE(next);
    freeing.join();

    first.reset();
    second.reset();
    ExpectNoClient(ERROR_FILE_NOT_FOUND);
}

TEST_F(Pipe, AKilledServerBreaksThePipeAndFreesItsName) {
    if (Role() == "server") {
        const UniqueHandle server(NewServer());
        std::puts("serving");
        std::fflush(stdout);
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
    EXPECT_EQ(Ask(client.get(), "?"), "error " + std::to_string(ERROR_BROKEN_PIPE));
    killing.join();
    ExpectNoClient(ERROR_FILE_NOT_FOUND);
    const UniqueHandle server(NewServer());
    EXPECT_TRUE(server);
    EXPECT_TRUE(UniqueHandle(NewClient()));
}

TEST_F(Pipe, OtherAccountsConnectOnlyToAPipeThatIsOpenToThem) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "welcome") {
        EXPECT_TRUE(UniqueHandle(NewClient()));
        return;
    }
    if (Role() == "refused") {
        ExpectNoClient(ERROR_ACCESS_DENIED);
        return;
    }
    ProcessOptions asStranger;
    asStranger.account = kStranger;
    SECURITY_DESCRIPTOR descriptor{};
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE));
    SECURITY_ATTRIBUTES everyone{sizeof everyone, &descriptor, FALSE};
    for (const std::string role : {"refused", "welcome"}) {
        const UniqueHandle server(NewServer(1, role == "welcome" ? &everyone : nullptr));
        const ProcessResult result = RunRole(role, asStranger);
        EXPECT_EQ(result.exitCode, 0) << result.output;
    }
}

}  // namespace
