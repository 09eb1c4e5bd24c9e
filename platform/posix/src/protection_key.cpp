#include "protection_key.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "descriptor.h"
#include "endpoint.h"
#include "last_error.h"
#include "thread_identity.h"

namespace platform {
namespace {

struct KeyFile {
    std::string path;
    mode_t mode;
};

// An empty path, with the last error set, when the folder cannot be had.
KeyFile KeyFileOf(ProtectionScope scope) {
    const bool user = scope == ProtectionScope::kUser;
    const std::string folder = user ? EndpointUserFolder(ThreadAccount())
                                    : EndpointSubfolder("keys", FolderUse::kOwnerWrites);
    if (folder.empty()) return {};
    return user ? KeyFile{folder + "/user.key", 0600} : KeyFile{folder + "/machine.key", 0644};
}

UniqueDescriptor OpenKeyFile(const std::string& path, int flags) {
    return UniqueDescriptor(open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600));
}

// True when the file was there and read; false with the last error set otherwise.
bool ReadKey(const KeyFile& file, ProtectionKey& key) {
    const UniqueDescriptor opened = OpenKeyFile(file.path, O_RDONLY);
    if (!opened) return FailWithErrno(errno);
    struct stat info {};
    if (fstat(opened.get(), &info) != 0) return FailWithErrno(errno);
    const bool tooOpen = (info.st_mode & 07777 & ~file.mode) != 0;
    if (!S_ISREG(info.st_mode) || tooOpen || info.st_size != static_cast<off_t>(key.size()) ||
        read(opened.get(), key.data(), key.size()) != static_cast<ssize_t>(key.size())) {
        return Fail(ERROR_INVALID_DATA);
    }
    return true;
}

bool WriteKey(const std::string& path, mode_t mode) {
    ProtectionKey key;
    FillRandom(key.data(), key.size());
    const UniqueDescriptor made = OpenKeyFile(path, O_WRONLY | O_CREAT | O_EXCL);
    return made && write(made.get(), key.data(), key.size()) == static_cast<ssize_t>(key.size()) &&
           fchmod(made.get(), mode) == 0 && fsync(made.get()) == 0;
}

// Writes the key to a temporary file and links that to the key's name, unless another process did
// so first.
bool MakeKey(const KeyFile& file) {
    std::uint64_t suffix = 0;
    FillRandom(&suffix, sizeof suffix);
    const std::string draft = file.path + "." + std::to_string(suffix);
    const bool named = WriteKey(draft, file.mode) &&
                       (link(draft.c_str(), file.path.c_str()) == 0 || errno == EEXIST);
    if (!named) FailWithErrno(errno);
    unlink(draft.c_str());
    return named;
}

bool LoadKeyOfThread(ProtectionScope scope, MissingKey missing, ProtectionKey& key) {
    const KeyFile file = KeyFileOf(scope);
    if (file.path.empty()) return false;
    if (ReadKey(file, key)) return true;
    if (missing == MissingKey::kFail || GetLastError() != ERROR_FILE_NOT_FOUND) return false;
    return MakeKey(file) && ReadKey(file, key);
}

}  // namespace

bool LoadProtectionKey(ProtectionScope scope, MissingKey missing, ProtectionKey& key) {
    if (scope == ProtectionScope::kUser) return LoadKeyOfThread(scope, missing, key);
    const ActAsProcess asProcess;  // the machine's key does not depend on whom the thread serves
    return LoadKeyOfThread(scope, missing, key);
}

}  // namespace platform
