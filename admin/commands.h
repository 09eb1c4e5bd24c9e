// The commands. Each throws Failure when it cannot say more than what failed.
#pragma once

#include "admin/passwords.h"
#include "admin/report.h"

// Opens a backup in any stored form and checks all that a restore reads: the document, the
// verifier, and that every value can be read and every protected one decrypts.
Report Verify(const WString& file, PasswordSource& password);

// Tells what a backup holds, without its values.
Report Show(const WString& file, PasswordSource& password);

// Compares two backups. Not good when they differ.
Report Diff(const WString& first, const WString& second, PasswordSource& firstPassword,
            PasswordSource& secondPassword);

// How the result of a rekey is stored.
enum class Envelope { kAsBefore, kEncrypted, kPlain };

// Gives a backup another password. `out` may be the file itself, which is then replaced in one
// step. What is written is read again before that, and restores what the file did.
Report Rekey(const WString& file, const WString& out, Envelope envelope, PasswordSource& password,
             PasswordSource& newPassword);
