#include "event.h"

#include <poll.h>
#include <synchapi.h>
#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>

#include "last_error.h"
#include "named_object.h"
#include "thread_identity.h"

namespace platform {
namespace {

// Notices writes to the file of an object from its construction on.
class Watch {
  public:
    explicit Watch(const ObjectFile& file) : watch_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        const ActAsProcess asProcess;  // which may read the file, as who opened it might
        const std::string path = "/proc/self/fd/" + std::to_string(file.Descriptor());
        isSet_ = watch_ && inotify_add_watch(watch_.get(), path.c_str(), IN_MODIFY) >= 0;
        if (!isSet_) FailWithErrno(errno);
    }
    // False, with the last error set, when no watch is to be had.
    explicit operator bool() const { return isSet_; }

    void WaitForChange(const Deadline& deadline) const {
        pollfd polled{watch_.get(), POLLIN, 0};
        poll(&polled, 1, deadline.PollTimeout());
        std::array<char, 1024> changes{};
        while (read(watch_.get(), changes.data(), changes.size()) > 0) continue;
    }

  private:
    UniqueDescriptor watch_;
    bool isSet_ = false;
};

class Event final : public SyncObject {
  public:
    using SyncObject::SyncObject;

    BOOL Change(bool isSet);
    void SetSource(std::weak_ptr<KernelObject> source) {
        const std::lock_guard lock(mutex_);
        source_ = std::move(source);
    }

    DWORD Wait(const Deadline& deadline) override;

  private:
    DWORD Take(std::optional<std::uint32_t>& first);
    DWORD WaitForThreads(const Deadline& deadline);
    DWORD WaitForProcesses(const Deadline& deadline);

    std::weak_ptr<KernelObject> source_;
};

BOOL Event::Change(bool isSet) {
    const std::lock_guard lock(mutex_);
    const Gate gate(File());
    ObjectState state;
    if (!gate || !Load(state)) return FALSE;
    if (isSet) ++state.settings;
    state.isSet = isSet ? 1 : 0;
    if (!Store(state)) return FALSE;
    if (isSet) source_.reset();
    changed_.notify_all();
    return TRUE;
}

// One look: WAIT_TIMEOUT while the event is not set. An event without automatic reset that was set
// since the first look counts as set, also when it is not any more.
DWORD Event::Take(std::optional<std::uint32_t>& first) {
    const Gate gate(File());
    ObjectState state;
    if (!gate || !Load(state)) return WAIT_FAILED;
    if (!first) first = state.settings;
    const bool wasSet = state.isManual != 0 && state.settings != *first;
    if (state.isSet == 0 && !wasSet) return WAIT_TIMEOUT;
    if (state.isManual != 0) return WAIT_OBJECT_0;
    state.isSet = 0;
    return Store(state) ? WAIT_OBJECT_0 : WAIT_FAILED;
}

DWORD Event::Wait(const Deadline& deadline) {
    std::unique_lock lock(mutex_);
    const auto source = source_.lock();
    lock.unlock();
    if (source) source->Wait(deadline);
    return File() ? WaitForProcesses(deadline) : WaitForThreads(deadline);
}

DWORD Event::WaitForThreads(const Deadline& deadline) {
    std::unique_lock lock(mutex_);
    std::optional<std::uint32_t> first;
    DWORD result = WAIT_TIMEOUT;
    deadline.WaitFor(changed_, lock, [&] {
        result = Take(first);
        return result != WAIT_TIMEOUT;
    });
    return result;
}

DWORD Event::WaitForProcesses(const Deadline& deadline) {
    std::optional<std::uint32_t> first;
    std::optional<Watch> watch;  // stands before a look, so that nothing is missed after it
    for (;;) {
        std::unique_lock lock(mutex_);
        const DWORD result = Take(first);
        lock.unlock();
        if (result != WAIT_TIMEOUT || deadline.HasPassed()) return result;
        if (watch) {
            watch->WaitForChange(deadline);
        } else if (!watch.emplace(File())) {
            return WAIT_FAILED;
        }
    }
}

ObjectRequest RequestFor(LPCWSTR name, BOOL isManual, BOOL isSet) {
    const ObjectState state{
        .kind = ObjectKind::kEvent, .isManual = isManual ? 1U : 0U, .isSet = isSet ? 1U : 0U};
    return {name, state, MakeSyncObject<Event>, false};
}

}  // namespace

void SetSourceOfEvent(HANDLE event, std::weak_ptr<KernelObject> source) {
    if (const auto known = SyncObjectOf<Event>(event, 0)) known->SetSource(std::move(source));
}

}  // namespace platform

using namespace platform;

extern "C" HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset,
                                      BOOL bInitialState, LPCWSTR lpName) {
    return CreateObject(RequestFor(lpName, bManualReset, bInitialState), lpEventAttributes,
                        EVENT_ALL_ACCESS);
}

extern "C" HANDLE WINAPI OpenEventW(DWORD dwDesiredAccess, BOOL /*bInheritHandle*/,
                                    LPCWSTR lpName) {
    return OpenObject(RequestFor(lpName, FALSE, FALSE), dwDesiredAccess);
}

extern "C" BOOL WINAPI SetEvent(HANDLE hEvent) {
    const auto event = SyncObjectOf<Event>(hEvent, EVENT_MODIFY_STATE);
    return event ? event->Change(true) : FALSE;
}

extern "C" BOOL WINAPI ResetEvent(HANDLE hEvent) {
    const auto event = SyncObjectOf<Event>(hEvent, EVENT_MODIFY_STATE);
    return event ? event->Change(false) : FALSE;
}
