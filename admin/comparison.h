// The differences between two backups: by module, key and value. What differs between two backups
// of one state - the header, the salts of encrypted data, the order - does not count.
#pragma once

#include <string>
#include <vector>

#include "admin/backup_content.h"

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
