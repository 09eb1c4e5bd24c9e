// The differences between two backups: by module, key and value. What differs between two backups
// of one state - the header, the salts of encrypted data, the order - does not count.
#pragma once

#include <string>
#include <vector>

#include "admin/backup_content.h"
#include "admin/report.h"

enum class Change { kOnlyInFirst, kOnlyInSecond, kChanged };
const char* NameOf(Change change);

struct Difference {
    Change change;
    std::string module;
    // Both empty when it is the module as a whole that only one of them has.
    WString key;
    WString name;
    bool isModule = false;
};

std::vector<Difference> Compare(const BackupContent& first, const BackupContent& second);

// What a restore of `file` would change, or has not changed, on a machine with this content: values
// of the file that the machine does not hold so, and values that the machine holds beyond the file
// in keys which a restore makes what the file says. An empty list of modules means all of the file.
std::vector<Difference> CompareWithMachine(const BackupContent& file, const BackupContent& machine,
                                           const std::vector<std::string>& modules);

// A difference for people, on a line without its end, and for programs. Values are not told.
std::string LineOf(const Difference& difference);
nlohmann::ordered_json FactOf(const Difference& difference);
