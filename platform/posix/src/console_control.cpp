// Signals that end a process, as control events of the console.
#include <consoleapi.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <vector>

#include "last_error.h"

namespace {

struct Event {
    int signal;
    DWORD event;
};
constexpr Event kEvents[] = {{SIGINT, CTRL_C_EVENT},
                             {SIGQUIT, CTRL_BREAK_EVENT},
                             {SIGHUP, CTRL_CLOSE_EVENT},
                             {SIGTERM, CTRL_SHUTDOWN_EVENT}};

// Never destroyed: a signal may come at any time.
struct Handlers {
    std::mutex mutex;
    std::vector<PHANDLER_ROUTINE> routines;
    int signalled[2] = {-1, -1};  // a pipe of signal numbers
};
Handlers& TheHandlers() {
    static auto* const handlers = new Handlers;
    return *handlers;
}

void PassOn(int signal) {
    const int error = errno;
    const auto number = static_cast<char>(signal);
    if (write(TheHandlers().signalled[1], &number, sizeof number) < 0) errno = 0;
    errno = error;
}

// True when a handler took the event.
bool Handle(DWORD event) {
    std::vector<PHANDLER_ROUTINE> routines;
    {
        const std::lock_guard lock(TheHandlers().mutex);
        routines = TheHandlers().routines;
    }
    return std::any_of(routines.rbegin(), routines.rend(),
                       [=](PHANDLER_ROUTINE routine) { return routine(event) != FALSE; });
}

void* HandleSignals(void* /*nothing*/) {
    char number = 0;
    for (;;) {
        if (read(TheHandlers().signalled[0], &number, sizeof number) != sizeof number) continue;
        const auto found = std::ranges::find(kEvents, static_cast<int>(number), &Event::signal);
        if (found == std::end(kEvents) || Handle(found->event)) continue;
        std::signal(number, SIG_DFL);
        kill(getpid(), number);
    }
}

// Before the first handler is there.
bool WatchSignals(Handlers& handlers) {
    if (pipe2(handlers.signalled, O_CLOEXEC) != 0) return platform::FailWithErrno(errno);
    // Signals are taken by the threads that are there already.
    sigset_t all{};
    sigset_t before{};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, HandleSignals, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) return platform::Fail(ERROR_NOT_ENOUGH_MEMORY);
    pthread_detach(thread);
    for (const Event& event : kEvents) {
        struct sigaction action {};
        if (sigaction(event.signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = PassOn;
        action.sa_flags = SA_RESTART;
        sigaction(event.signal, &action, nullptr);
    }
    return true;
}

}  // namespace

extern "C" BOOL WINAPI SetConsoleCtrlHandler(PHANDLER_ROUTINE HandlerRoutine, BOOL Add) {
    if (HandlerRoutine == nullptr) return platform::Fail(ERROR_NOT_SUPPORTED);
    Handlers& handlers = TheHandlers();
    const std::lock_guard lock(handlers.mutex);
    if (Add) {
        if (handlers.signalled[0] < 0 && !WatchSignals(handlers)) return FALSE;
        handlers.routines.push_back(HandlerRoutine);
        return TRUE;
    }
    const auto found = std::ranges::find(handlers.routines, HandlerRoutine);
    if (found == handlers.routines.end()) return platform::Fail(ERROR_INVALID_PARAMETER);
    handlers.routines.erase(found);
    return TRUE;
}
