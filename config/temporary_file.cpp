#include "config/temporary_file.h"

#include <utilsdll.h>

#include "common/path.h"

TemporaryFile::TemporaryFile() {
    WCHAR folder[kPathCapacity] = {};
    WCHAR path[kPathCapacity] = {};
    const DWORD length = GetTempPathW(MAX_PATH, folder);
    if (length == 0 || length > MAX_PATH) return;
    if (fs_get_temp_file_path(folder, nullptr, path, kPathCapacity) != 0) path_ = path;
}

TemporaryFile::~TemporaryFile() {
    if (!path_.empty()) DeleteFileW(path_.c_str());
}
