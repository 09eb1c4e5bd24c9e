// sngui: the reference user interface of the client. It serves the pipe of one session and shows
// what it is told as lines on standard output.
#include <gui_message.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>

#include "common/console_text.h"
#include "common/format.h"
#include "common/handles.h"
#include "common/pipe_call.h"
#include "common/security.h"

namespace {

constexpr const WCHAR* kHelp =
    TEXT("usage: sngui SESSION [--count N]\n       sngui --help | --version\n\n") TEXT(
        "Serves the user interface's pipe of a session and prints a line for each message:\n\n")
        TEXT("  listening on PIPE         once, when it is ready\n") TEXT(
            "  code CODE P1 P2 P3 P4     a notification code and its parameters, in decimal\n")
            TEXT("  tray TEXT                 a tray notification; control characters as \\xNN\n\n")
                TEXT("It runs until it is killed, or with --count until it has shown N messages.\n")
                    TEXT(
                        "Exit codes: 0 all shown, 1 the pipe cannot be served, 2 wrong "
                        "arguments.\n");

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// Clients that are served at one time, and what one of them may take for each of its steps: those
// that are silent hold up no others.
constexpr DWORD kClientsAtOnce = 8;
constexpr DWORD kClientTimeLimitMilliseconds = 2000;

struct Options {
    WString session;
    DWORD messages = 0;  // 0: no end
};

bool IsNumber(WStringView text) {
    return !text.empty() && text.size() <= 9 &&
           text.find_first_not_of(TEXT("0123456789")) == WStringView::npos;
}

std::optional<Options> ParseOptions(int argc, WCHAR** argv) {
    Options options;
    if ((argc != 2 && argc != 4) || !IsNumber(argv[1])) return std::nullopt;
    options.session = FormatWide(TEXT("%d"), LeadingNumber(argv[1]));
    if (argc == 2) return options;
    if (WStringView(argv[2]) != TEXT("--count") || !IsNumber(argv[3])) return std::nullopt;
    options.messages = static_cast<DWORD>(LeadingNumber(argv[3]));
    return options.messages == 0 ? std::nullopt : std::optional(options);
}

// --- What is shown ------------------------------------------------------------------------------

union Message {
    GuiMessageKind kind;
    GuiCodeMessage code;
    GuiTrayMessage tray;
};

// The line for a message; nothing when it is none.
std::optional<WString> LineOf(const Message& message, DWORD size) {
    if (size < sizeof message.kind) return std::nullopt;
    if (message.kind == GuiMessageKind::kCode && size == sizeof message.code) {
        const auto& [kind, code, parameters] = message.code;
        return FormatWide(TEXT("code %lu %lu %lu %lu %lu\n"), code, parameters[0], parameters[1],
                          parameters[2], parameters[3]);
    }
    const DWORD textSize = size - DWORD{offsetof(GuiTrayMessage, text)};
    if (message.kind == GuiMessageKind::kTrayText && textSize % sizeof(WCHAR) == 0) {
        return TEXT("tray ") + OneLine({message.tray.text, textSize / sizeof(WCHAR)}) + TEXT("\n");
    }
    return std::nullopt;
}

// Standard output, shared by the clients' threads.
class Screen {
  public:
    void Show(WStringView line) {
        const std::lock_guard lock(mutex_);
        WriteConsoleText(line);
    }

  private:
    std::mutex mutex_;
};

// --- The pipe -----------------------------------------------------------------------------------

class Server {
  public:
    explicit Server(const Options& options)
        : pipe_(kGuiPipe + WString(TEXT("_")) + options.session), messages_(options.messages) {}

    int Run();

  private:
    UniqueHandle NewInstance(DWORD flags) const;
    void ServeClients(HANDLE instance);
    void ServeClient(HANDLE instance);
    void Complain(const WCHAR* format, DWORD error) const {
        WriteErrorText(FormatWide(format, pipe_.c_str(), error));
    }

    const WString pipe_;
    const DWORD messages_;
    Screen screen_;
    std::atomic<DWORD> shown_ = 0;
    const UniqueHandle allShown_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

UniqueHandle Server::NewInstance(DWORD flags) const {
    // The tool posts from whatever account it runs in.
    AccessList callers(kEveryoneCalls);
    if (callers.get() == nullptr) return {};
    return UniqueHandle(CreateNamedPipeW(
        pipe_.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | flags,
        PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
        kClientsAtOnce, sizeof(GuiReply), sizeof(Message), 0, callers.get()));
}

// Takes one message. One that is too long or not understood is not shown.
void Server::ServeClient(HANDLE instance) {
    Message message = {};
    DWORD size = 0;
    if (ReceiveMessage(instance, &message, sizeof message, size, kClientTimeLimitMilliseconds) !=
        ERROR_SUCCESS) {
        return;
    }
    const auto line = LineOf(message, size);
    if (line) screen_.Show(*line);
    const GuiReply reply = {line ? 1U : 0U};
    if (SendMessageTo(instance, &reply, sizeof reply, kClientTimeLimitMilliseconds) ==
        ERROR_SUCCESS) {
        // A reply that was not read yet goes with the connection: the client hangs up first.
        ReceiveMessage(instance, &message, sizeof message, size, kClientTimeLimitMilliseconds);
    }
    if (line && ++shown_ == messages_) SetEvent(allShown_.get());
}

void Server::ServeClients(HANDLE instance) {
    for (;;) {
        const DWORD error = WaitForClient(instance, INFINITE);
        if (error == ERROR_SUCCESS) {
            ServeClient(instance);
        } else if (error != ERROR_NO_DATA) {  // that is a client which has gone already
            Complain(TEXT("sngui: %s is served no longer (error %lu)\n"), error);
            std::_Exit(kExitFailed);
        }
        DisconnectNamedPipe(instance);
    }
}

int Server::Run() {
    // 1. The pipe, which nobody else may serve.
    std::vector<UniqueHandle> instances;
    instances.push_back(NewInstance(FILE_FLAG_FIRST_PIPE_INSTANCE));
    while (instances.size() < kClientsAtOnce) instances.push_back(NewInstance(0));
    for (const UniqueHandle& instance : instances) {
        if (instance) continue;
        Complain(TEXT("sngui: cannot serve %s (error %lu)\n"), GetLastError());
        return kExitFailed;
    }
    screen_.Show(TEXT("listening on ") + pipe_ + TEXT("\n"));

    // 2. Its clients, until as many messages are shown as there should be.
    std::vector<std::thread> threads;
    threads.reserve(instances.size());
    for (const UniqueHandle& instance : instances) {
        threads.emplace_back([this, pipe = instance.get()] { ServeClients(pipe); });
    }
    WaitForSingleObject(allShown_.get(), INFINITE);

    // 3. The threads wait for clients: the end of the process is theirs.
    std::_Exit(kExitOk);
}

}  // namespace

extern "C" int wmain(int argc, WCHAR** argv) {
    if (argc == 2 && WStringView(argv[1]) == TEXT("--help")) {
        WriteConsoleText(kHelp);
        return kExitOk;
    }
    if (argc == 2 && WStringView(argv[1]) == TEXT("--version")) {
        WriteVersion(TEXT("sngui"));
        return kExitOk;
    }
    const auto options = ParseOptions(argc, argv);
    if (!options) {
        WriteErrorText(kHelp);
        return kExitUsage;
    }
    return Server(*options).Run();
}
