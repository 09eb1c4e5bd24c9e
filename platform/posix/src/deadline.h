// A time limit that holds over several waits.
#pragma once

#include <minwindef.h>
#include <synchapi.h>

#include <algorithm>
#include <chrono>
#include <limits>

namespace platform {

class Deadline {
  public:
    // So many milliseconds from now; INFINITE is without limit.
    explicit Deadline(DWORD milliseconds)
        : isInfinite_(milliseconds == INFINITE),
          end_(Clock::now() + std::chrono::milliseconds(milliseconds)) {}

    bool HasPassed() const { return !isInfinite_ && Clock::now() >= end_; }

    // The rest as poll() takes it. A rest longer than poll() can wait is cut: check HasPassed().
    int PollTimeout() const {
        if (isInfinite_) return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
        constexpr std::int64_t kLongest = std::numeric_limits<int>::max();
        return static_cast<int>(std::clamp<std::int64_t>(left, 0, kLongest));
    }

  private:
    using Clock = std::chrono::steady_clock;

    bool isInfinite_;
    Clock::time_point end_;
};

}  // namespace platform
