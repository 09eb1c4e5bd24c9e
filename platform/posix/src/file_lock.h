// Locks on single bytes of a file, whether the file has them or not. They belong to the open file
// description: they end with it, also when its process is killed.
#pragma once

#include <sys/types.h>

namespace platform {

enum class LockMode { kShared, kExclusive };

// Takes the lock. False, with errno set, on failure: EAGAIN when another description holds it.
bool TryLockByte(int file, LockMode mode, off_t byte);
// The same, but blocks in the kernel until the lock is free.
bool LockByte(int file, LockMode mode, off_t byte);
void UnlockByte(int file, off_t byte);

// Whether another open file description holds any lock on the byte.
bool IsByteLockedByAnother(int file, off_t byte);

}  // namespace platform
