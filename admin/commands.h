// The commands. Each throws Failure when it cannot say more than what failed.
#pragma once

#include "admin/machine_request.h"
#include "admin/passwords.h"
#include "admin/report.h"

// Makes a backup of this machine, verifies what was written, and only then replaces the old file.
// Into a folder it writes a file of the host and the time (admin/dated_backups.h) and, with `keep`
// above 0, deletes older ones beyond that number. Not good, with the old file left alone, when a
// module failed or has no plug-in.
Report Create(const WString& destination, const MachineScope& scope, bool isEncrypted, int keep,
              PasswordSource& password);

// How a restore is done.
struct RestoreWords {
    MachineScope scope;
    bool isDryRun = false;  // says what would change, and changes nothing
    bool goesBack = false;  // to the safety copy, when a module failed
};

// Restores a good backup through the guards of SNConfig's import, and compares the machine with the
// file afterwards. Before that, a safety copy of the machine is written, encrypted with the file's
// password and readable by administrators alone. Not good when a module is not as the file says.
Report Restore(const WString& file, const RestoreWords& words, PasswordSource& password,
               PasswordSource& unlockPassword);

// Opens a backup in any stored form and checks all that a restore reads: the document, the
// verifier, and that every value can be read and every protected one decrypts.
Report Verify(const WString& file, PasswordSource& password);

// Tells what a backup holds, without its values.
Report Show(const WString& file, PasswordSource& password);

// Compares two backups. Not good when they differ.
Report Diff(const WString& first, const WString& second, PasswordSource& firstPassword,
            PasswordSource& secondPassword);

// Compares a backup with this machine, as far as the file goes. Not good when they differ.
Report DiffLive(const WString& file, const MachineScope& scope, PasswordSource& password);

// How the result of a rekey is stored.
enum class Envelope { kAsBefore, kEncrypted, kPlain };

// Gives a backup another password. `out` may be the file itself, which is then replaced in one
// step. What is written is read again before that, and restores what the file did.
Report Rekey(const WString& file, const WString& out, Envelope envelope, PasswordSource& password,
             PasswordSource& newPassword);
