// Who may change the client's configuration from a file.
#pragma once

#include "common/secure_text.h"
#include "common/text.h"
#include "config/config_file.h"

// Result codes of a request. The run's exit code is the one that its request ends with.
inline constexpr int kResultOk = 0;
inline constexpr int kResultWrongUnlockPassword = 1;
inline constexpr int kResultProtected = 2;
inline constexpr int kResultNoRights = 3;
inline constexpr int kResultUnusable = 5;

// Each check returns kResultOk when the import may go on; otherwise it has reported why not and
// returns the code with which the request ends.

// Administrator rights.
int CheckRights();

// The password verifier that the plain working copy carries, if it carries one.
int CheckFilePassword(ConfigFile& workingCopy, const SecureText& password, DWORD sessionId);

// The central-management lock and the configuration lock.
int CheckLocks(const SecureText& unlockPassword, bool isParentTrusted);

// True when a configuration lock password is set.
bool IsLockPasswordSet();
