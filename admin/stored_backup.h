// A backup file, opened in whatever form it is stored.
#pragma once

#include <memory>

#include "admin/passwords.h"
#include "common/text.h"
#include "config/config_file.h"
#include "config/working_copy.h"

// See config/working_copy.h.
enum class StoredForm { kPlain, kEncrypted, kProtected };
const char* NameOf(StoredForm form);

// The loaded document of a backup, with the plain copy that it was loaded from.
struct StoredBackup {
    StoredForm form = StoredForm::kPlain;
    std::unique_ptr<WorkingCopy> copy;
    std::unique_ptr<ConfigFile> file;

    TiXmlElement* Root() const { return file->Root(); }
};

// Opens the file with the rights of the caller. The password is asked for only when the file is
// encrypted with one. Throws Failure: the file cannot be read, is no backup, does not decrypt, or
// holds no whole document of a configuration.
StoredBackup OpenBackup(const WString& path, PasswordSource& password);
