// A backup at a glance: form, header, modules with counts, what is missing and what is not read.
#pragma once

#include "admin/backup_content.h"
#include "admin/report.h"
#include "admin/stored_backup.h"

class Overview {
  public:
    Overview(const WString& file, const StoredBackup& backup, const BackupContent& content);

    void SetFact(const char* name, const char* value) { report_.facts[name] = value; }
    // Adds a row; the fact of it that is returned can be added to. No state: not examined.
    nlohmann::ordered_json& AddModule(const std::string& name, ValueCount count, const char* state);
    // Ends with the lists and `lines`; `verdict` stands behind the file's name.
    Report Finish(ExitCode exitCode, const std::string& verdict, const std::string& lines);

  private:
    const BackupContent& content_;
    std::string file_;
    std::string table_;
    Report report_;
};
