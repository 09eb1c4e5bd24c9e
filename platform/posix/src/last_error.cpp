#include "last_error.h"

#include <handleapi.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;

struct Meaning {
    int error;
    DWORD code;
};

constexpr Meaning kMeanings[] = {
    {0, ERROR_SUCCESS},
    {EACCES, ERROR_ACCESS_DENIED},
    {EBADF, ERROR_INVALID_HANDLE},
    {ECONNRESET, ERROR_BROKEN_PIPE},
    {EDQUOT, ERROR_DISK_FULL},
    {EEXIST, ERROR_FILE_EXISTS},
    {EFBIG, ERROR_DISK_FULL},
    {EINVAL, ERROR_INVALID_PARAMETER},
    {EIO, ERROR_IO_DEVICE},
    {EISDIR, ERROR_ACCESS_DENIED},
    {ELOOP, ERROR_CANTOPEN},
    {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
    {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
    {ENOENT, ERROR_FILE_NOT_FOUND},
    {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {ENOSPC, ERROR_DISK_FULL},
    {ENOTDIR, ERROR_PATH_NOT_FOUND},
    {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
    {EPERM, ERROR_ACCESS_DENIED},
    {EPIPE, ERROR_BROKEN_PIPE},
    {EROFS, ERROR_WRITE_PROTECT},
    {ETIMEDOUT, ERROR_SEM_TIMEOUT},
    {ETXTBSY, ERROR_ACCESS_DENIED},
};

}  // namespace

extern "C" DWORD WINAPI GetLastError() {
    return lastError;
}

extern "C" void WINAPI SetLastError(DWORD dwErrCode) {
    lastError = dwErrCode;
}

namespace platform {

DWORD ErrorOfErrno(int error) {
    const auto* const known = std::ranges::find(kMeanings, error, &Meaning::error);
    return known == std::end(kMeanings) ? ERROR_GEN_FAILURE : known->code;
}

HANDLE FailToOpen(DWORD error) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
}

}  // namespace platform
