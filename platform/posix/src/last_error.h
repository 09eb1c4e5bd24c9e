// Errors of POSIX calls as Windows error codes.
#pragma once

#include <errhandlingapi.h>
#include <winerror.h>

namespace platform {

// The Windows code for an errno value.
DWORD ErrorOfErrno(int error);

// Sets the thread's last error and returns FALSE or another empty result - null, 0, no object -, so
// that a failing call can end with `return Fail(ERROR_...);`.
template <typename Result = BOOL>
Result Fail(DWORD error) {
    SetLastError(error);
    return Result{};
}

// The same from an errno value.
template <typename Result = BOOL>
Result FailWithErrno(int error) {
    return Fail<Result>(ErrorOfErrno(error));
}

// The same for calls that open a file or a pipe: INVALID_HANDLE_VALUE.
HANDLE FailToOpen(DWORD error);

}  // namespace platform
