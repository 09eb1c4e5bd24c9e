// Whether a backup is good: a restore of it with this password restores everything that it holds.
#pragma once

#include "admin/backup_content.h"
#include "admin/stored_backup.h"

// An opened backup with its content.
struct JudgedBackup {
    StoredBackup stored;
    BackupContent content;
    bool isGood = false;
};

// Opens, reads and judges a backup. The password is asked for when anything in the file is made
// with one. Throws Failure when it is another one: without a verifier, a password with which
// nothing protected decrypts is taken for wrong.
JudgedBackup JudgeBackup(const WString& path, PasswordSource& password);

// The same; throws Failure when it is not good.
JudgedBackup OpenGoodBackup(const WString& path, PasswordSource& password);
