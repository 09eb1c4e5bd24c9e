// Overlapped operations. They are supported by pipes that were opened with FILE_FLAG_OVERLAPPED: a
// call that gets an OVERLAPPED and cannot finish at once fails with ERROR_IO_PENDING. It goes on
// while its caller waits for the event of the OVERLAPPED, for the handle or for the result; its end
// sets the event. A handle is used by one thread at a time and has one such operation
// (ERROR_NOT_SUPPORTED), which must have ended before its buffers and its OVERLAPPED go. Closing
// the handle cancels it.
#pragma once

#include <minwinbase.h>

extern "C" {

// How an operation ended. While it goes on: ERROR_IO_INCOMPLETE, or with bWait waits for its end.
WINAPI_EXPORT BOOL WINAPI GetOverlappedResult(HANDLE hFile, LPOVERLAPPED lpOverlapped,
                                              LPDWORD lpNumberOfBytesTransferred, BOOL bWait);
// Lets an operation that goes on (null: any of the handle) end with ERROR_OPERATION_ABORTED, unless
// it ends otherwise first. ERROR_NOT_FOUND when there is none.
WINAPI_EXPORT BOOL WINAPI CancelIoEx(HANDLE hFile, LPOVERLAPPED lpOverlapped);
}
