#include <linux/futex.h>
#include <sched.h>
#include <synchapi.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>

#include "last_error.h"
#include "named_object.h"

namespace {

using platform::ObjectKind;
using platform::ObjectMemory;
using platform::ObjectState;

constexpr std::uint32_t kOwnerMask = FUTEX_TID_MASK;

// When a thread started, in the kernel's units since the machine's start; 0 when there is none.
std::uint64_t BirthOf(std::uint32_t thread) {
    std::ifstream file("/proc/" + std::to_string(thread) + "/stat");
    std::string line;
    std::getline(file, line);
    // After the name in brackets, which may hold anything, it is the twentieth field.
    const std::size_t name = line.rfind(')');
    if (name == std::string::npos) return 0;
    std::istringstream fields(line.substr(name + 1));
    std::string skipped;
    for (int i = 0; i < 19; ++i) fields >> skipped;
    std::uint64_t birth = 0;
    fields >> birth;
    return birth;
}

// A thread as the owner of mutexes.
struct Thread {
    std::uint32_t id = static_cast<std::uint32_t>(gettid());
    std::uint64_t birth = BirthOf(id);

    static const Thread& Current() {
        thread_local const Thread current;
        return current;
    }
};

// The word of the state holds the owner's thread id in the form of the kernel's own locks, so that
// the kernel hands the mutex on when the owner dies. Ids are used again: the owner's birth says
// whether the thread of that id is still the one that owns it. A birth of 0 is not known yet.
class Mutex : public platform::NamedObject {
  public:
    using NamedObject::NamedObject;

    static void TakeNew(ObjectState& state) {
        state.word = Thread::Current().id;
        state.ownerBirth = Thread::Current().birth;
    }

    BOOL Release() const;

  protected:
    DWORD WaitForState(DWORD milliseconds) override;

  private:
    bool IsMine() const {
        return (State().word & kOwnerMask) == Thread::Current().id &&
               State().ownerBirth == Thread::Current().birth;
    }
    bool IsOrphaned(std::uint32_t word) const;
    DWORD BecomeOwner() const;
};

// Whether the owner named by the word is gone and another thread has its id.
bool Mutex::IsOrphaned(std::uint32_t word) const {
    const std::uint32_t owner = word & kOwnerMask;
    if (owner == Thread::Current().id) return true;  // asked only when the mutex is not mine
    const std::uint64_t birth = State().ownerBirth;
    if (owner == 0 || birth == 0 || (word & FUTEX_OWNER_DIED) != 0) return false;
    const std::uint64_t found = BirthOf(owner);
    return found != 0 && found != birth && State().word == word && State().ownerBirth == birth;
}

// After the word was won.
DWORD Mutex::BecomeOwner() const {
    ObjectState& state = State();
    state.depth = 0;
    state.ownerBirth = Thread::Current().birth;
    const std::uint32_t word = state.word.fetch_and(~std::uint32_t{FUTEX_OWNER_DIED});
    return (word & FUTEX_OWNER_DIED) != 0 ? WAIT_ABANDONED : WAIT_OBJECT_0;
}

DWORD Mutex::WaitForState(DWORD milliseconds) {
    ObjectState& state = State();
    if (IsMine()) {
        ++state.depth;
        return WAIT_OBJECT_0;
    }
    const auto deadline = platform::DeadlineOf(milliseconds);
    const std::uint32_t me = Thread::Current().id;
    for (;;) {
        // 1. A free mutex, or one whose owner is gone.
        std::uint32_t word = state.word;
        if (word == 0 && state.word.compare_exchange_strong(word, me)) return BecomeOwner();
        const auto inherit = [&] {
            const std::uint32_t mine = me | FUTEX_OWNER_DIED | (word & FUTEX_WAITERS);
            return state.word.compare_exchange_strong(word, mine);
        };
        if (IsOrphaned(word) && inherit()) return BecomeOwner();
        // 2. The kernel's queue.
        const int error = platform::FutexLock(state.word, deadline);
        if (error == 0) return BecomeOwner();
        if (error == ETIMEDOUT) return WAIT_TIMEOUT;
        if (error == ESRCH) {
            // No thread has the owner's id; the kernel may have marked the word for a waiter.
            const std::uint32_t owner = word;
            word = state.word;
            const bool same = ((word ^ owner) & ~std::uint32_t{FUTEX_WAITERS}) == 0;
            if (same && inherit()) return BecomeOwner();
        } else if (error == EAGAIN || error == EBUSY) {
            sched_yield();  // the owner is dying just now
        } else if (error != EINTR && error != EDEADLK) {
            platform::FailWithErrno(error);
            return WAIT_FAILED;
        }
    }
}

BOOL Mutex::Release() const {
    if (!IsMine()) return platform::Fail(ERROR_NOT_OWNER);
    ObjectState& state = State();
    if (state.depth > 0) {
        --state.depth;
        return TRUE;
    }
    state.ownerBirth = 0;
    std::uint32_t word = Thread::Current().id;
    if (state.word.compare_exchange_strong(word, 0)) return TRUE;
    int error = 0;
    do {
        error = platform::FutexUnlock(state.word);
    } while (error == EAGAIN || error == EINTR);
    return error == 0 ? TRUE : platform::FailWithErrno(error);
}

}  // namespace

extern "C" HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner,
                                      LPCWSTR lpName) {
    const auto initialize = [bInitialOwner](ObjectState& state) {
        if (bInitialOwner) Mutex::TakeNew(state);
    };
    bool existed = false;
    auto memory =
        ObjectMemory::Create(lpName, lpMutexAttributes, ObjectKind::kMutex, initialize, existed);
    if (!memory) return nullptr;
    SetLastError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return platform::OpenHandle(std::make_shared<Mutex>(std::move(memory), MUTEX_ALL_ACCESS));
}

extern "C" HANDLE WINAPI OpenMutexW(DWORD dwDesiredAccess, BOOL /*bInheritHandle*/,
                                    LPCWSTR lpName) {
    auto memory = ObjectMemory::Open(lpName, ObjectKind::kMutex);
    if (!memory) return nullptr;
    return platform::OpenHandle(std::make_shared<Mutex>(std::move(memory), dwDesiredAccess));
}

extern "C" BOOL WINAPI ReleaseMutex(HANDLE hMutex) {
    const auto mutex = platform::ObjectOf<Mutex>(hMutex);
    return mutex ? mutex->Release() : FALSE;
}
