// What the crypto service keeps beyond its own life: values of the key "SA_SNCRYPTD" below the
// product key. It belongs to no feature, so no backup carries it, and the registry lock does not
// keep the service from it. Writing needs an administrator's rights.
#pragma once

#include <windows.h>

#include <vector>

#include "common/text.h"

// The message of the FIPS error mode; empty when the client is not in it. A state that cannot be
// read counts as the error mode.
WString FipsError();
// Enters the error mode, whose message is this from now on (of a long one, its start).
bool SetFipsError(WStringView message);
// Leaves it; true also when the client was not in it.
bool ClearFipsError();

// A configuration change that a process has begun and not committed. Process and start name it: the
// number alone may be another process's by now.
struct OpenChange {
    DWORD process = 0;
    DWORD reserved = 0;
    ULONGLONG start = 0;  // of the process, in the system's file time

    bool operator==(const OpenChange&) const = default;
};

// One that has begun several changes stands there several times. Ended processes may be among them.
std::vector<OpenChange> OpenChanges();
bool SetOpenChanges(const std::vector<OpenChange>& changes);

// The digest of the configuration as the last commit left it; empty when there was none.
std::vector<BYTE> CommittedConfiguration();
bool SetCommittedConfiguration(const std::vector<BYTE>& digest);
