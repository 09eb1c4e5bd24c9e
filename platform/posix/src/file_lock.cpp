#include "file_lock.h"

#include <fcntl.h>

#include <cerrno>

namespace platform {
namespace {

struct flock LockOf(short type, off_t byte) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

bool SetLock(int file, int command, short type, off_t byte) {
    struct flock lock = LockOf(type, byte);
    while (fcntl(file, command, &lock) != 0) {
        if (errno == EACCES) errno = EAGAIN;
        if (errno != EINTR) return false;
    }
    return true;
}

short TypeOf(LockMode mode) {
    return mode == LockMode::kShared ? F_RDLCK : F_WRLCK;
}

}  // namespace

bool TryLockByte(int file, LockMode mode, off_t byte) {
    return SetLock(file, F_OFD_SETLK, TypeOf(mode), byte);
}

bool LockByte(int file, LockMode mode, off_t byte) {
    return SetLock(file, F_OFD_SETLKW, TypeOf(mode), byte);
}

void UnlockByte(int file, off_t byte) {
    SetLock(file, F_OFD_SETLK, F_UNLCK, byte);
}

bool IsByteLockedByAnother(int file, off_t byte) {
    struct flock lock = LockOf(F_WRLCK, byte);
    return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace platform
