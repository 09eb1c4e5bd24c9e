// A time limit that holds over several waits.
#pragma once

#include <minwindef.h>
#include <synchapi.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <limits>
#include <mutex>

namespace platform {

class Deadline {
  public:
    // So many milliseconds from now; INFINITE is without limit.
    explicit Deadline(DWORD milliseconds)
        : isInfinite_(milliseconds == INFINITE),
          end_(Clock::now() + std::chrono::milliseconds(milliseconds)) {}

    bool IsInfinite() const { return isInfinite_; }
    bool HasPassed() const { return !isInfinite_ && Clock::now() >= end_; }

    // The rest as poll() takes it. A rest longer than poll() can wait is cut: check HasPassed().
    int PollTimeout() const {
        if (isInfinite_) return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
        constexpr std::int64_t kMaxWait = std::numeric_limits<int>::max();
        return static_cast<int>(std::clamp<std::int64_t>(left, 0, kMaxWait));
    }

    // Waits for the condition, which is notified of changes; false when it did not hold in time.
    template <typename Condition>
    bool WaitFor(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                 Condition condition) const {
        if (!isInfinite_) return changed.wait_until(lock, end_, condition);
        changed.wait(lock, condition);
        return true;
    }

  private:
    using Clock = std::chrono::steady_clock;

    bool isInfinite_;
    Clock::time_point end_;
};

}  // namespace platform
