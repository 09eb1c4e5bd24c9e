#include "app/services/interruption.h"

#include <windows.h>

#include <utility>

namespace {

struct State {
    std::recursive_mutex mutex;
    std::list<std::function<bool()>> tidies;
    bool waits = false;
};

// Never destroyed: an interruption may come at any time.
State& TheState() {
    static auto* const state = new State;
    return *state;
}

constexpr int kRounds = 50;
constexpr DWORD kPause = 20;  // milliseconds between two rounds

bool TidyAll(const State& state) {
    bool isDone = true;
    for (const auto& tidy : state.tidies) isDone = tidy() && isDone;
    return isDone;
}

// Runs on a thread of its own.
BOOL WINAPI EndRun(DWORD /*event*/) {
    State& state = TheState();
    {
        // Not given back at the end: nothing is made or registered any more.
        std::unique_lock lock(state.mutex);
        if (!state.waits) {
            for (int round = 0; !TidyAll(state) && round < kRounds; ++round) Sleep(kPause);
            lock.release();
            return FALSE;
        }
    }
    Sleep(INFINITE);
    return TRUE;
}

}  // namespace

void HandleInterruptions() {
    SetConsoleCtrlHandler(EndRun, TRUE);
}

void WaitOutInterruptions() {
    const InterruptionPause pause;
    TheState().waits = true;
}

InterruptionPause::InterruptionPause() : lock_(TheState().mutex) {}

TidyOnInterruption::TidyOnInterruption(std::function<bool()> tidy) {
    const InterruptionPause pause;
    auto& tidies = TheState().tidies;
    place_ = tidies.insert(tidies.end(), std::move(tidy));
}

TidyOnInterruption::~TidyOnInterruption() {
    const InterruptionPause pause;
    TheState().tidies.erase(place_);
}
