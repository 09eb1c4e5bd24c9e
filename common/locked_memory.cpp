#include "common/locked_memory.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <new>

namespace {

// Pages are locked and unlocked as a whole, however often: each lot of them has one owner.
constexpr std::size_t kPageSize = 4096;

std::size_t WholePages(std::size_t size) {
    return (size + kPageSize - 1) / kPageSize * kPageSize;
}

std::byte* AllocatePages(std::size_t size) {
    auto* const pages =
        static_cast<std::byte*>(::operator new(WholePages(size), std::align_val_t(kPageSize)));
    VirtualLock(pages, WholePages(size));
    return pages;
}

void FreePages(std::byte* pages, std::size_t size) {
    VirtualUnlock(pages, WholePages(size));
    ::operator delete(pages, std::align_val_t(kPageSize));
}

// A mutex that exists before every constructor and after every destructor. It is held shortly.
class SpinLock {
  public:
    void lock() {
        while (isHeld_.test_and_set(std::memory_order_acquire)) Sleep(0);
    }
    void unlock() { isHeld_.clear(std::memory_order_release); }

  private:
    std::atomic_flag isHeld_;
};

// A few pages that small allocations share; where they are full, small allocations are ordinary
// memory: thousands of them with a locked page each would use up the quota. The pages exist while
// they hold an allocation: a library that is unloaded leaves none locked. There is nothing to
// destroy, so that static objects may hold secrets to their end.
class SharedPages {
  public:
    // Null when there is no room.
    std::byte* Allocate(std::size_t size) {
        const std::size_t count = UnitsOf(size);
        const std::lock_guard lock(mutex_);
        if (units_.size() - used_ < count) return nullptr;
        if (used_ == 0) pages_ = AllocatePages(kSize);
        const auto free = std::search_n(units_.begin(), units_.end(), count, false);
        if (free == units_.end()) return nullptr;
        std::fill_n(free, count, true);
        used_ += count;
        return pages_ + static_cast<std::size_t>(free - units_.begin()) * kUnit;
    }

    // False when the memory is none of these pages.
    bool Free(const std::byte* memory, std::size_t size) {
        const std::lock_guard lock(mutex_);
        if (used_ == 0 || memory < pages_ || memory >= pages_ + kSize) return false;
        const auto first = static_cast<std::size_t>(memory - pages_) / kUnit;
        std::fill_n(units_.begin() + static_cast<std::ptrdiff_t>(first), UnitsOf(size), false);
        used_ -= UnitsOf(size);
        if (used_ == 0) FreePages(pages_, kSize);
        return true;
    }

    // Larger allocations have pages of their own.
    static constexpr std::size_t kLargest = kPageSize;

  private:
    static constexpr std::size_t kSize = 8 * kPageSize;
    static constexpr std::size_t kUnit = 64;

    static std::size_t UnitsOf(std::size_t size) { return (size + kUnit - 1) / kUnit; }

    SpinLock mutex_;
    std::byte* pages_ = nullptr;
    std::array<bool, kSize / kUnit> units_{};  // true: in use
    std::size_t used_ = 0;                     // of the units
};

constinit SharedPages sharedPages;

}  // namespace

void* AllocateLocked(std::size_t size) {
    const std::size_t room = std::max<std::size_t>(size, 1);
    if (room > SharedPages::kLargest) return AllocatePages(room);
    std::byte* const shared = sharedPages.Allocate(room);
    return shared != nullptr ? shared : ::operator new(room);
}

void FreeLocked(void* memory, std::size_t size) {
    if (memory == nullptr) return;
    auto* const bytes = static_cast<std::byte*>(memory);
    const std::size_t room = std::max<std::size_t>(size, 1);
    SecureZeroMemory(bytes, size);
    if (room > SharedPages::kLargest) return FreePages(bytes, room);
    if (!sharedPages.Free(bytes, room)) ::operator delete(memory);
}
