// A mutex belongs to a thread, which the process remembers, and among the processes to the one that
// has locked a byte of its file. The kernel takes that lock from a killed process; the state in the
// file then still says that the mutex has an owner, by which the next one learns of it.
#include <synchapi.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <thread>
#include <vector>

#include "file_lock.h"
#include "last_error.h"
#include "named_object.h"

using namespace platform;

namespace {

// Between two tries of a wait with a time limit, which the kernel does not offer for file locks.
constexpr useconds_t kPauseMicroseconds = 2'000;

class Mutex final : public SyncObject, public std::enable_shared_from_this<Mutex> {
  public:
    using SyncObject::SyncObject;

    DWORD Wait(const Deadline& deadline) override;
    BOOL Release();
    // The thread that owns the mutex ends.
    void Abandon() { GiveUp(); }

  private:
    bool LockFile(const Deadline& deadline, DWORD& result) const;
    DWORD TakeFromOtherProcesses(const Deadline& deadline);
    void GiveUp();

    std::thread::id owner_;  // while it waits for other processes, too
    unsigned depth_ = 0;     // waits that the owner won after the first
};

// The mutexes that a thread owns, which it abandons when it ends.
class OwnedMutexes {
  public:
    ~OwnedMutexes() {
        haveEnded = true;
        for (const auto& owned : mutexes_) {
            if (const auto mutex = owned.lock()) mutex->Abandon();
        }
    }
    // Nothing is left to do for what the thread takes after its end: its process ends with it.
    static void Add(std::weak_ptr<Mutex> mutex) {
        if (!haveEnded) Current().mutexes_.push_back(std::move(mutex));
    }
    static void Remove(const Mutex* mutex) {
        if (haveEnded) return;
        std::erase_if(Current().mutexes_, [mutex](const auto& owned) {
            const auto known = owned.lock();
            return !known || known.get() == mutex;
        });
    }

  private:
    static OwnedMutexes& Current() {
        thread_local OwnedMutexes current;
        return current;
    }
    static thread_local bool haveEnded;

    std::vector<std::weak_ptr<Mutex>> mutexes_;
};
thread_local bool OwnedMutexes::haveEnded = false;

DWORD Mutex::Wait(const Deadline& deadline) {
    const std::thread::id self = std::this_thread::get_id();
    std::unique_lock lock(mutex_);
    if (owner_ == self) {
        ++depth_;
        return WAIT_OBJECT_0;
    }
    const auto isFree = [this] { return owner_ == std::thread::id(); };
    if (!deadline.WaitFor(changed_, lock, isFree)) return WAIT_TIMEOUT;
    owner_ = self;
    lock.unlock();
    const DWORD result = TakeFromOtherProcesses(deadline);
    if (result == WAIT_TIMEOUT || result == WAIT_FAILED) {
        GiveUp();
    } else {
        OwnedMutexes::Add(weak_from_this());
    }
    return result;
}

// False with the result of the wait when the lock is not had.
bool Mutex::LockFile(const Deadline& deadline, DWORD& result) const {
    const int file = File().Descriptor();
    bool isLocked = deadline.IsInfinite() ? LockByte(file, LockMode::kExclusive, kOwnerByte)
                                          : TryLockByte(file, LockMode::kExclusive, kOwnerByte);
    while (!isLocked && errno == EAGAIN && !deadline.HasPassed()) {
        usleep(kPauseMicroseconds);
        isLocked = TryLockByte(file, LockMode::kExclusive, kOwnerByte);
    }
    if (isLocked) return true;
    result = errno == EAGAIN ? WAIT_TIMEOUT : WAIT_FAILED;
    return FailWithErrno(errno);
}

DWORD Mutex::TakeFromOtherProcesses(const Deadline& deadline) {
    DWORD result = WAIT_FAILED;
    if (File() && !LockFile(deadline, result)) return result;
    ObjectState state;
    if (!Load(state)) return WAIT_FAILED;
    if (state.isSet != 0) return WAIT_ABANDONED;
    state.isSet = 1;
    return Store(state) ? WAIT_OBJECT_0 : WAIT_FAILED;
}

BOOL Mutex::Release() {
    {
        const std::lock_guard lock(mutex_);
        if (owner_ != std::this_thread::get_id()) return Fail(ERROR_NOT_OWNER);
        if (depth_ > 0) {
            --depth_;
            return TRUE;
        }
    }
    OwnedMutexes::Remove(this);
    // When the state cannot be written, the next owner gets WAIT_ABANDONED, which does no harm.
    ObjectState state;
    if (Load(state)) {
        state.isSet = 0;
        Store(state);
    }
    GiveUp();
    return TRUE;
}

void Mutex::GiveUp() {
    if (File()) UnlockByte(File().Descriptor(), kOwnerByte);
    const std::lock_guard lock(mutex_);
    owner_ = {};
    depth_ = 0;
    changed_.notify_one();
}

ObjectRequest RequestFor(LPCWSTR name, bool isOwned) {
    return {name, {.kind = ObjectKind::kMutex}, MakeSyncObject<Mutex>, isOwned};
}

}  // namespace

extern "C" HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES lpMutexAttributes, BOOL bInitialOwner,
                                      LPCWSTR lpName) {
    return CreateObject(RequestFor(lpName, bInitialOwner != FALSE), lpMutexAttributes,
                        MUTEX_ALL_ACCESS);
}

extern "C" HANDLE WINAPI OpenMutexW(DWORD dwDesiredAccess, BOOL /*bInheritHandle*/,
                                    LPCWSTR lpName) {
    return OpenObject(RequestFor(lpName, false), dwDesiredAccess);
}

extern "C" BOOL WINAPI ReleaseMutex(HANDLE hMutex) {
    const auto mutex = SyncObjectOf<Mutex>(hMutex, 0);
    return mutex ? mutex->Release() : FALSE;
}
