// Backups in a folder, a file for each host and second: HOST-YYYYMMDD-HHMMSS.xml, in UTC.
#pragma once

#include "common/text.h"

// The path of the backup that this host makes now.
WString NameDatedBackup(const WString& folder);

// Deletes the oldest backups of this host until `count` are left; never `newest`, which counts as
// one of them. Files of other names are left alone. The number of those that were deleted.
int KeepNewestBackups(const WString& folder, const WString& newest, int count);
