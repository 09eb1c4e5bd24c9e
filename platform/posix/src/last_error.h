// Errors of POSIX calls as Windows error codes.
#pragma once

#include <errhandlingapi.h>
#include <winerror.h>

namespace platform {

// The Windows code for an errno value.
DWORD ErrorOfErrno(int error);

// Sets the thread's last error from an errno value and returns FALSE, so that a failing call can
// end with `return FailWithErrno(errno);`.
BOOL FailWithErrno(int error);

// Sets the thread's last error and returns FALSE.
BOOL Fail(DWORD error);

}  // namespace platform
