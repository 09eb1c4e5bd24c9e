// The console, which on this system is a terminal.
#pragma once

#include <winnt.h>

#define ENABLE_PROCESSED_INPUT 0x0001
#define ENABLE_LINE_INPUT 0x0002
#define ENABLE_ECHO_INPUT 0x0004
#define ENABLE_PROCESSED_OUTPUT 0x0001
#define ENABLE_WRAP_AT_EOL_OUTPUT 0x0002

extern "C" {
// Fails with ERROR_INVALID_HANDLE when the handle is no console: that is how a caller knows.
WINAPI_EXPORT BOOL WINAPI GetConsoleMode(HANDLE hConsoleHandle, LPDWORD lpMode);
// Writes text to a console; fails with ERROR_INVALID_HANDLE for a file or a pipe.
WINAPI_EXPORT BOOL WINAPI WriteConsoleW(HANDLE hConsoleOutput, const void* lpBuffer,
                                        DWORD nNumberOfCharsToWrite, LPDWORD lpNumberOfCharsWritten,
                                        LPVOID lpReserved);
}
