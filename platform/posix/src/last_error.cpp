#include "last_error.h"

#include <cerrno>

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;

}  // namespace

extern "C" DWORD WINAPI GetLastError() {
    return lastError;
}

extern "C" void WINAPI SetLastError(DWORD dwErrCode) {
    lastError = dwErrCode;
}

namespace platform {

DWORD ErrorOfErrno(int error) {
    switch (error) {
        case 0:
            return ERROR_SUCCESS;
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EISDIR:
        case ETXTBSY:
            return ERROR_ACCESS_DENIED;
        case EROFS:
            return ERROR_WRITE_PROTECT;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case ENOTEMPTY:
            return ERROR_DIR_NOT_EMPTY;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return ERROR_DISK_FULL;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        case EINVAL:
            return ERROR_INVALID_PARAMETER;
        case ELOOP:
            return ERROR_CANTOPEN;
        case ETIMEDOUT:
            return ERROR_SEM_TIMEOUT;
        case EPIPE:
        case ECONNRESET:
            return ERROR_BROKEN_PIPE;
        case EIO:
            return ERROR_IO_DEVICE;
        default:
            return ERROR_GEN_FAILURE;
    }
}

BOOL FailWithErrno(int error) {
    return Fail(ErrorOfErrno(error));
}

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace platform
