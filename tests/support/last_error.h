// The last error beside the result that tells of it.
#pragma once

#include <windows.h>

#include <concepts>

// The error of a call that failed, by what it returned - false, nothing or no handle; otherwise
// ERROR_SUCCESS.
template <std::integral Result>
DWORD ErrorOf(Result result) {
    return result != 0 ? DWORD{ERROR_SUCCESS} : GetLastError();
}
inline DWORD ErrorOf(const void* handle) {
    return ErrorOf(handle != nullptr && handle != INVALID_HANDLE_VALUE);
}
