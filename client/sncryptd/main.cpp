// sncryptd: the reference crypto service of the client. It serves one pipe, and answers one request
// on each connection.
#include <openssl/crypto.h>

#include <array>
#include <cstdlib>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "client/sncryptd/connection_limit.h"
#include "client/sncryptd/requests.h"
#include "client/sncryptd/workers.h"
#include "common/console_text.h"
#include "common/format.h"
#include "common/handles.h"
#include "common/pipe_call.h"
#include "common/process_guard.h"
#include "common/security.h"
#include "cryptd/SNCryptdAPI.h"

namespace {

constexpr const WCHAR* kHelp = TEXT("usage: sncryptd [--help | --version]\n\n")
    TEXT("Serves random bytes and the state of the client's FIPS mode on the pipe of the\n")
        TEXT("client's crypto service. It prints \"listening on PIPE\" when it is ready and\n")
            TEXT("runs until it is killed.\n")
                TEXT("Exit codes: 1 the pipe cannot be served, 2 wrong arguments.\n");

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

constexpr std::size_t kMaxMessage = sizeof(MessageHeader) + MSGPIPE_MAX_PAYLOAD;

// Instances for clients that connect beside those that are answered, and what one may take for its
// request and for taking its reply: those that are silent hold up no others.
constexpr DWORD kFreeInstances = 4;
constexpr DWORD kRequestLimitMilliseconds = 1'000;
constexpr DWORD kReplyLimitMilliseconds = 2'000;

// Until it is tried again when the system has no thread or no memory to spare.
constexpr DWORD kPauseMilliseconds = 100;

// --- The client ---------------------------------------------------------------------------------

// While it lives the thread's rights are those of an instance's client.
class ActAsClient {
  public:
    explicit ActAsClient(HANDLE instance) : acts_(ImpersonateNamedPipeClient(instance)) {}
    ActAsClient(const ActAsClient&) = delete;
    ActAsClient& operator=(const ActAsClient&) = delete;
    ~ActAsClient() {
        if (acts_ && !RevertToSelf()) std::abort();  // must not serve on as somebody else
    }
    explicit operator bool() const { return acts_ != FALSE; }

  private:
    BOOL acts_;
};

// The security identifier of a token's account; empty when it cannot be learnt.
std::vector<BYTE> AccountOf(HANDLE token) {
    alignas(TOKEN_USER) std::array<BYTE, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user = {};
    DWORD size = user.size();
    if (!GetTokenInformation(token, TokenUser, user.data(), size, &size)) return {};
    const PSID sid = reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid;
    const auto* const bytes = static_cast<const BYTE*>(sid);
    return {bytes, bytes + GetLengthSid(sid)};
}

// The client with a token; none when it is a guest or cannot be learnt.
std::optional<Client> ClientWith(HANDLE token, DWORD process) {
    Client client = {.process = process, .account = AccountOf(token)};
    if (client.account.empty() || !IsMemberOf(WinAuthenticatedUserSid, token)) return std::nullopt;
    client.isAdministrator =
        IsMemberOf(WinBuiltinAdministratorsSid, token) || IsMemberOf(WinLocalSystemSid, token);
    return client;
}

// Who has connected, by the process that did: known before it has sent anything, for the connection
// limit. Processes that may not be looked at count as one account.
std::optional<Client> ClientOfConnection(HANDLE instance) {
    Client unknown;
    if (!GetNamedPipeClientProcessId(instance, &unknown.process)) return std::nullopt;
    const UniqueHandle process(
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, unknown.process));
    UniqueHandle own;
    UniqueHandle token;
    if (!process || !OpenProcessToken(process.get(), TOKEN_QUERY | TOKEN_DUPLICATE, own.put()) ||
        !DuplicateToken(own.get(), SecurityIdentification, token.put())) {
        return unknown;
    }
    return ClientWith(token.get(), unknown.process);
}

// Who has sent the request that was read. The token only identifies the client: nobody but the
// process itself may open it.
std::optional<Client> ClientOfRequest(HANDLE instance) {
    DWORD processId = 0;
    UniqueHandle token;
    {
        const ActAsClient asClient(instance);
        if (!asClient || !GetNamedPipeClientProcessId(instance, &processId) ||
            !OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())) {
            return std::nullopt;
        }
    }
    return ClientWith(token.get(), processId);
}

// --- The pipe -----------------------------------------------------------------------------------

// An admitted client. The instance is closed before its slot is released, so the number of
// instances is limited, too.
struct Connection {
    ConnectionSlot slot;
    UniqueHandle instance;
};

class Server {
  public:
    [[noreturn]] void Run();

  private:
    static UniqueHandle NewInstance(DWORD flags);
    static void Serve(const Connection& connection);
    bool Admit(UniqueHandle& instance);
    [[noreturn]] void AcceptClients(UniqueHandle instance);

    ConnectionLimit limit_;
    Workers<Connection> workers_{Serve};
};

UniqueHandle Server::NewInstance(DWORD flags) {
    // Every account may ask; what it asks for decides whether it may have it.
    AccessList callers(kServedByAdministrators);
    if (callers.get() == nullptr) return {};
    return UniqueHandle(CreateNamedPipeW(
        kCryptdPipe, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | flags,
        PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
        kMaxConnections + kFreeInstances, kMaxMessage, kMaxMessage, 0, callers.get()));
}

[[noreturn]] void GiveUp(DWORD error) {
    WriteErrorText(FormatWide(TEXT("sncryptd: cannot serve %s (error %lu)\n"), kCryptdPipe, error));
    std::_Exit(kExitFailed);
}

// Answers one request. One that is too long or no message, and an unknown client, gets no answer.
void Server::Serve(const Connection& connection) try {
    const HANDLE instance = connection.instance.get();
    SecureBytes message(kMaxMessage);
    DWORD size = 0;
    if (ReceiveMessage(instance, message.data(), kMaxMessage, size, kRequestLimitMilliseconds) !=
        ERROR_SUCCESS) {
        return;
    }
    const std::optional<Client> client = ClientOfRequest(instance);
    if (!client) return;
    const SecureBytes reply = Answer({message.data(), size}, *client);
    if (!reply.empty() && SendMessageTo(instance, reply.data(), static_cast<DWORD>(reply.size()),
                                        kReplyLimitMilliseconds) == ERROR_SUCCESS) {
        // A reply that was not read yet goes with the connection: the client hangs up first.
        ReceiveMessage(instance, message.data(), kMaxMessage, size, kReplyLimitMilliseconds);
    }
} catch (const std::exception&) {
    // Out of memory: this client gets no answer.
}

// Hands an instance with its client to the workers and makes a new instance. False when the client
// is not to be served.
bool Server::Admit(UniqueHandle& instance) try {
    std::optional<Client> client = ClientOfConnection(instance.get());
    if (!client || !limit_.Acquire(*client)) return false;
    ConnectionSlot slot(limit_, std::move(*client));
    UniqueHandle next = NewInstance(0);
    if (!next) return false;
    workers_.Take({std::move(slot), std::exchange(instance, std::move(next))});
    return true;
} catch (const std::exception&) {
    return false;  // no thread or no memory is to be had: this client gets no answer
}

// Takes clients on one instance after another. It has one at all times, so the pipe stays ours.
void Server::AcceptClients(UniqueHandle instance) {
    for (;;) {
        const DWORD error = WaitForClient(instance.get(), INFINITE);
        if (error == ERROR_SUCCESS && Admit(instance)) continue;
        DisconnectNamedPipe(instance.get());
        const bool hasGone = error == ERROR_NO_DATA;  // the client, already
        if (error != ERROR_SUCCESS && !hasGone) Sleep(kPauseMilliseconds);
    }
}

void Server::Run() try {
    // 1. The pipe, which nobody else may serve.
    std::vector<UniqueHandle> instances;
    for (DWORD i = 0; i < kFreeInstances; ++i) {
        instances.push_back(NewInstance(i == 0 ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0));
        if (!instances.back()) GiveUp(GetLastError());
    }

    // 2. Its clients, until the process is ended.
    for (std::size_t i = 1; i < instances.size(); ++i) {
        std::thread([this, own = std::move(instances[i])]() mutable {
            AcceptClients(std::move(own));
        }).detach();
    }
    WriteConsoleText(FormatWide(TEXT("listening on %s\n"), kCryptdPipe));
    AcceptClients(std::move(instances.front()));
} catch (const std::exception&) {
    GiveUp(ERROR_NO_SYSTEM_RESOURCES);
}

}  // namespace

extern "C" int wmain(int argc, WCHAR** argv) {
    if (argc == 2 && WStringView(argv[1]) == TEXT("--help")) {
        WriteConsoleText(kHelp);
        return kExitOk;
    }
    if (argc == 2 && WStringView(argv[1]) == TEXT("--version")) {
        WriteVersion(TEXT("sncryptd"));
        return kExitOk;
    }
    if (argc != 1) {
        WriteErrorText(kHelp);
        return kExitUsage;
    }
    KeepMemoryOutOfCrashReports();
    // The FIPS module's configuration is read into a context of its own; there is no other.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr);
    Server().Run();
}
