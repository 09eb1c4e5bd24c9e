// The commands of snclient. Each gets what stands for the words of its row in the command table, in
// that order, and returns the program's exit code.
#pragma once

#include <windows.h>

#include <optional>
#include <span>

#include "common/secure_text.h"

using Arguments = std::span<const WString>;

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// What stands around the configuration tool.
int SetLockPassword(Arguments arguments);
int ClearLockPassword(Arguments arguments);
int LockRegistry(Arguments arguments);
int UnlockRegistry(Arguments arguments);
int SetManaged(Arguments arguments);
int SetFips(Arguments arguments);
int LeaveFipsErrorMode(Arguments arguments);
int ControlClientService(Arguments arguments);
int ShowStatus(Arguments arguments);

// What it reads.
int EncryptPassword(Arguments arguments);
int EncryptProcessId(Arguments arguments);
int EncryptFileContent(Arguments arguments);
int ProtectFile(Arguments arguments);
int MaskFile(Arguments arguments);
int ProtectValue(Arguments arguments);

// Says on standard error what failed, in the format of FormatWide; returns kExitFailed.
int Failed(const WCHAR* format, const WString& subject = {}, DWORD error = 0);
// Says what is wrong with the arguments; returns kExitUsage.
int WrongArgument(const WCHAR* format, const WString& argument = {});

// A password given as an argument. "-" stands for the first line of standard input: typed without
// being shown on a console, in UTF-8 from a pipe or a file, where a byte order mark is passed over.
// Nothing, with what is wrong said on standard error, for a line that is empty or too long, holds a
// NUL, or is no UTF-8.
std::optional<SecureText> PasswordArgument(const WString& argument);
