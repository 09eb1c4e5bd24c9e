// The kernel's waiting on a word of memory, private or shared between processes.
#pragma once

#include <minwindef.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <optional>

namespace platform {

using FutexWord = std::atomic<std::uint32_t>;
static_assert(FutexWord::is_always_lock_free && sizeof(FutexWord) == sizeof(std::uint32_t));

// The moment (of CLOCK_MONOTONIC) at which a wait that begins now ends; none for INFINITE.
std::optional<timespec> DeadlineOf(DWORD milliseconds);

// Sleeps while the word holds the value. Returns 0 when woken, else an errno value: EAGAIN when the
// word holds another value, ETIMEDOUT, EINTR.
int FutexWait(FutexWord& word, std::uint32_t value, const std::optional<timespec>& deadline);
void FutexWakeAll(FutexWord& word);

// A lock whose word holds the owning thread's id, and 0 while it is free (FUTEX_LOCK_PI): the
// kernel hands it on when its owner dies, marked with FUTEX_OWNER_DIED. Returns 0 or an errno
// value: ETIMEDOUT, EINTR, EAGAIN (try again), ESRCH (the word names a thread that is no more).
int FutexLock(FutexWord& word, const std::optional<timespec>& deadline);
int FutexUnlock(FutexWord& word);

}  // namespace platform
