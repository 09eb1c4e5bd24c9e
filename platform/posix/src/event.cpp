#include <synchapi.h>

#include <cerrno>

#include "last_error.h"
#include "named_object.h"

namespace {

using platform::ObjectKind;
using platform::ObjectMemory;
using platform::ObjectState;

// The lowest bit of the state's word says whether the event is set; the others count how often it
// was, so that a waiter learns of a setting that was undone before it woke up.
constexpr std::uint32_t kSet = 1;
constexpr std::uint32_t kOneSetting = 2;

class Event : public platform::NamedObject {
  public:
    using NamedObject::NamedObject;

    BOOL Set() const {
        if (!Allows(EVENT_MODIFY_STATE)) return platform::Fail(ERROR_ACCESS_DENIED);
        auto& word = State().word;
        std::uint32_t old = word;
        while (!word.compare_exchange_weak(old, (old | kSet) + kOneSetting)) continue;
        // All of them: one that was chosen alone might be killed before it takes its turn.
        platform::FutexWakeAll(word);
        return TRUE;
    }
    BOOL Reset() const {
        if (!Allows(EVENT_MODIFY_STATE)) return platform::Fail(ERROR_ACCESS_DENIED);
        State().word &= ~kSet;
        return TRUE;
    }

  protected:
    DWORD WaitForState(DWORD milliseconds) override {
        const auto deadline = platform::DeadlineOf(milliseconds);
        auto& word = State().word;
        const bool manual = State().manualReset != 0;
        const std::uint32_t first = word;
        for (std::uint32_t seen = first;; seen = word) {
            if (manual && ((seen & kSet) != 0 || seen / kOneSetting != first / kOneSetting)) {
                return WAIT_OBJECT_0;
            }
            while (!manual && (seen & kSet) != 0) {
                if (word.compare_exchange_weak(seen, seen & ~kSet)) return WAIT_OBJECT_0;
            }
            const int error = platform::FutexWait(word, seen, deadline);
            if (error == ETIMEDOUT) return WAIT_TIMEOUT;
            if (error != 0 && error != EAGAIN && error != EINTR) {
                platform::FailWithErrno(error);
                return WAIT_FAILED;
            }
        }
    }
};

}  // namespace

extern "C" HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                                      BOOL bInitialState, LPCWSTR lpName) {
    const auto initialize = [=](ObjectState& state) {
        state.manualReset = bManualReset ? 1 : 0;
        state.word = bInitialState ? kSet : 0;
    };
    bool existed = false;
    auto memory =
        ObjectMemory::Create(lpName, lpEventAttributes, ObjectKind::kEvent, initialize, existed);
    if (!memory) return nullptr;
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return platform::OpenHandle(std::make_shared<Event>(std::move(memory), EVENT_ALL_ACCESS));
}

extern "C" HANDLE WINAPI OpenEventW(DWORD dwDesiredAccess, BOOL /*bInheritHandle*/,
                                    LPCWSTR lpName) {
    auto memory = ObjectMemory::Open(lpName, ObjectKind::kEvent);
    if (!memory) return nullptr;
    return platform::OpenHandle(std::make_shared<Event>(std::move(memory), dwDesiredAccess));
}

extern "C" BOOL WINAPI SetEvent(HANDLE hEvent) {
    const auto event = platform::ObjectOf<Event>(hEvent);
    return event ? event->Set() : FALSE;
}

extern "C" BOOL WINAPI ResetEvent(HANDLE hEvent) {
    const auto event = platform::ObjectOf<Event>(hEvent);
    return event ? event->Reset() : FALSE;
}
