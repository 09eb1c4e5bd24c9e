#include "share_mode.h"

#include <unistd.h>

#include <limits>
#include <random>

#include "file_lock.h"
#include "last_error.h"

namespace platform {
namespace {

// One kind of use. Each has two bytes, far past any data: whoever uses the file so holds a shared
// lock on the first, and whoever denies that use to others holds one on the second. The locks
// belong to the open file description, so they end with it - also when its process is killed.
struct Kind {
    DWORD access;
    DWORD share;
    off_t use;
    off_t denial;
};

constexpr off_t kBytes = std::numeric_limits<off_t>::max() - 16;
constexpr Kind kKinds[] = {
    {FILE_READ_DATA, FILE_SHARE_READ, kBytes, kBytes + 1},
    {FILE_WRITE_DATA | FILE_APPEND_DATA, FILE_SHARE_WRITE, kBytes + 2, kBytes + 3},
    {DELETE, FILE_SHARE_DELETE, kBytes + 4, kBytes + 5},
};

bool IsDenied(int descriptor, DWORD access) {
    for (const Kind& kind : kKinds) {
        if ((access & kind.access) != 0 && IsByteLockedByAnother(descriptor, kind.denial))
            return true;
    }
    return false;
}

bool DeniesAnother(int descriptor, DWORD share) {
    for (const Kind& kind : kKinds) {
        if ((share & kind.share) == 0 && IsByteLockedByAnother(descriptor, kind.use)) return true;
    }
    return false;
}

void PauseShortly() {
    thread_local std::minstd_rand random(static_cast<unsigned>(gettid()));
    usleep(500 + static_cast<useconds_t>(random() % 4000));
}

}  // namespace

bool TakeShare(int descriptor, DWORD access, DWORD share) {
    // Announced first and checked then: of two that exclude each other at least one sees the other.
    // When both do at the same moment both draw back; another try decides between them.
    constexpr int kTries = 5;
    for (int i = 0; i < kTries; ++i) {
        if (i != 0) PauseShortly();
        for (const Kind& kind : kKinds) {
            // A file system without such locks, or a descriptor that cannot read, just announces
            // nothing.
            if ((access & kind.access) != 0) TryLockByte(descriptor, LockMode::kShared, kind.use);
            if ((share & kind.share) == 0) TryLockByte(descriptor, LockMode::kShared, kind.denial);
        }
        if (!IsDenied(descriptor, access) && !DeniesAnother(descriptor, share)) return true;
        for (const Kind& kind : kKinds) {
            UnlockByte(descriptor, kind.use);
            UnlockByte(descriptor, kind.denial);
        }
    }
    return Fail(ERROR_SHARING_VIOLATION);
}

bool SharingAllows(int descriptor, DWORD access) {
    return !IsDenied(descriptor, access) || Fail(ERROR_SHARING_VIOLATION);
}

}  // namespace platform
