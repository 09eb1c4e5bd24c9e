// The console, which on this system is a terminal.
#pragma once

#include <winnt.h>

#define ENABLE_PROCESSED_INPUT 0x0001
#define ENABLE_LINE_INPUT 0x0002
#define ENABLE_ECHO_INPUT 0x0004
#define ENABLE_PROCESSED_OUTPUT 0x0001
#define ENABLE_WRAP_AT_EOL_OUTPUT 0x0002

#define CTRL_C_EVENT 0
#define CTRL_BREAK_EVENT 1
#define CTRL_CLOSE_EVENT 2
#define CTRL_SHUTDOWN_EVENT 6
using PHANDLER_ROUTINE = BOOL(WINAPI*)(DWORD dwCtrlType);

extern "C" {
// Fails with ERROR_INVALID_HANDLE when the handle is no console: that is how a caller knows.
WINAPI_EXPORT BOOL WINAPI GetConsoleMode(HANDLE hConsoleHandle, LPDWORD lpMode);
// Adds or removes a function that is called, on a thread of its own, when the process gets SIGINT
// (CTRL_C_EVENT), SIGQUIT (CTRL_BREAK_EVENT), SIGHUP (CTRL_CLOSE_EVENT) or SIGTERM
// (CTRL_SHUTDOWN_EVENT). The one added last is called first; when none returns TRUE, the signal
// ends the process as it does without any. Signals that the process was started to ignore stay
// ignored. A null function is not supported.
WINAPI_EXPORT BOOL WINAPI SetConsoleCtrlHandler(PHANDLER_ROUTINE HandlerRoutine, BOOL Add);
// Of a console's input, whether what is typed is shown (ENABLE_ECHO_INPUT); the rest stays as it
// is. While it is not shown, the terminal does not stop the process (SIGTSTP).
WINAPI_EXPORT BOOL WINAPI SetConsoleMode(HANDLE hConsoleHandle, DWORD dwMode);
// Reads a line that is typed, with its end, as far as it fits.
WINAPI_EXPORT BOOL WINAPI ReadConsoleW(HANDLE hConsoleInput, LPVOID lpBuffer,
                                       DWORD nNumberOfCharsToRead, LPDWORD lpNumberOfCharsRead,
                                       LPVOID pInputControl);
// Writes text to a console; fails with ERROR_INVALID_HANDLE for a file or a pipe.
WINAPI_EXPORT BOOL WINAPI WriteConsoleW(HANDLE hConsoleOutput, const void* lpBuffer,
                                        DWORD nNumberOfCharsToWrite, LPDWORD lpNumberOfCharsWritten,
                                        LPVOID lpReserved);
}
