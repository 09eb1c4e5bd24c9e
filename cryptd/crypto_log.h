// The two diagnostic logs of the client's cryptography, "CryptdLog.txt" and "CryptdMsg.txt" in the
// folder logs\fips below the program's own. They are written in FIPS mode alone; outside it every
// write does nothing.
//
// A message becomes one line:
//
//   2024-05-31 09:07:12.045 [ 4711, 4712] - message
//
// with the local time and the ids of process and thread. Before a message that begins with "~"
// the line has no such prefix (nor the "~"). The line end is added where it is missing and stored
// as CR LF. Any number of processes may write at once: a mutex of the machine keeps their lines
// whole and in order. A log that has grown beyond 1 MiB becomes its own backup, "<name>.bak",
// before the next line of an account that may rename it: an administrator's or the system's.
//
// 8-bit text is UTF-8 and written as it is; wide text is UTF-16 and written as UTF-8. A formatted
// message has at most 8,191 characters; what is beyond them is cut off. Null text is empty text,
// and of an empty message nothing is written.
#pragma once

#include <windows.h>

// Handles of the logs' mutex; null before CryptdLogInit and when that failed. They are never
// closed.
extern HANDLE gCryptdLogMute;
extern HANDLE gCryptdMsgMute;

// Finds the logs' paths and makes the mutex: to be called before anything is logged. Returns 0.
int CryptdLogInit();

// Writes one message to the log of that path under that mutex. Returns 0 also outside FIPS mode, -1
// when the log cannot be opened, -2 when it cannot be opened again after it became the backup.
// Without a mutex it says so on standard output and writes all the same.
int CryptdLogWrite(const WCHAR* path, HANDLE mutex, const char* message);

// To the main log.
void CryptdLog(const char* message);
void CryptdLogW(const WCHAR* message);
[[gnu::format(printf, 1, 2)]] void CryptdLogPrintf(const char* format, ...);
void CryptdLogPrintfW(const WCHAR* format, ...);  // as FormatWide formats
// A line of dashes as long as the line of a message of `length` characters.
void CryptdLogSeparator(int length);

// To the message log, then to the main log.
void CryptdMsg(const char* message);
void CryptdMsgW(const WCHAR* message);
[[gnu::format(printf, 1, 2)]] void CryptdMsgPrintf(const char* format, ...);
void CryptdMsgPrintfW(const WCHAR* format, ...);
void CryptdMsgSeparator(int length);

// Each deletes a log and its backup.
void CryptdLogClear();
void CryptdMsgClear();

// Copies the main log over a file. 0; -1 for an empty or null path; -2 when the copy failed.
int CryptdLogCopy(const WCHAR* destination);

const WCHAR* CryptdGetLogPath();
const WCHAR* CryptdGetMsgPath();

// 1 while the calls of the crypto service are to be traced, else 0: another program says so by
// keeping a mutex of the machine.
int CryptdIsTraceEnabled();
