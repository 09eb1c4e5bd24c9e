#include "tests/support/file_facts.h"

#include <sys/stat.h>

namespace fs = std::filesystem;

bool OnlyOwnerMayUse(const fs::path& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && (info.st_mode & 0077) == 0;
}

bool EveryoneMayWrite(const fs::path& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && (info.st_mode & 0666) == 0666;
}

unsigned OwnerOf(const fs::path& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? info.st_uid : ~0U;
}
