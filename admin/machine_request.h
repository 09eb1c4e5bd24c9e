// The product's own backups and restores of this machine, run in this process.
#pragma once

#include <string>
#include <vector>

#include "admin/backup_content.h"
#include "common/secure_text.h"
#include "common/text.h"
#include "config/outcome.h"
#include "config/temporary_file.h"

// What of the machine is meant.
struct MachineScope {
    std::vector<std::string> modules;  // empty: all
    bool hasUser = false;              // the settings of the session's user, too
    WString session;                   // empty: that of the services; the user is then the caller
    bool isVpnOnly = false;
};

// A plain backup of the machine in a file of the run's own.
struct MachineBackup {
    TemporaryFile file;
    OperationOutcome outcome;
};

// Makes a backup, as SNConfig does it.
MachineBackup BackUp(const MachineScope& scope, const SecureText& password);

// A backup for this program's own use: also where the administrator has disabled backups, and
// nobody's desktop is told of it. Throws Failure when it cannot be made.
struct Snapshot {
    MachineBackup backup;
    BackupContent content;
};
Snapshot TakeSnapshot(const MachineScope& scope, const SecureText& password);

// Restores the plain file, as SNConfig does it.
RequestOutcome RestoreFrom(const WString& file, const MachineScope& scope,
                           const SecureText& password, const SecureText& unlockPassword);
