#include "futex.h"

#include <linux/futex.h>
#include <synchapi.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

namespace platform {
namespace {

int Futex(FutexWord& word, int operation, std::uint32_t value, const timespec* deadline) {
    const long result =
        syscall(SYS_futex, &word, operation, value, deadline, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result < 0 ? errno : 0;
}

const timespec* PointerTo(const std::optional<timespec>& deadline) {
    return deadline ? &*deadline : nullptr;
}

}  // namespace

std::optional<timespec> DeadlineOf(DWORD milliseconds) {
    if (milliseconds == INFINITE) return std::nullopt;
    constexpr long kSecond = 1'000'000'000;
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += milliseconds / 1000;
    end.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (end.tv_nsec >= kSecond) {
        end.tv_nsec -= kSecond;
        ++end.tv_sec;
    }
    return end;
}

int FutexWait(FutexWord& word, std::uint32_t value, const std::optional<timespec>& deadline) {
    return Futex(word, FUTEX_WAIT_BITSET, value, PointerTo(deadline));
}

void FutexWakeAll(FutexWord& word) {
    Futex(word, FUTEX_WAKE, INT_MAX, nullptr);
}

int FutexLock(FutexWord& word, const std::optional<timespec>& deadline) {
    return Futex(word, FUTEX_LOCK_PI2, 0, PointerTo(deadline));
}

int FutexUnlock(FutexWord& word) {
    return Futex(word, FUTEX_UNLOCK_PI, 0, nullptr);
}

}  // namespace platform
