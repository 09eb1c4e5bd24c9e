#include "endpoint.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "last_error.h"
#include "thread_identity.h"

namespace platform {
namespace {

std::string DecideEndpointFolder() {
    namespace fs = std::filesystem;
    const auto variable = [](const char* name) -> fs::path {
        const char* value = std::getenv(name);
        return value == nullptr ? "" : value;
    };
    fs::path folder = variable("SENTREL_ENDPOINT");
    if (folder.empty()) {
        fs::path state = variable("XDG_STATE_HOME");
        if (!state.is_absolute()) state = variable("HOME") / ".local" / "state";
        folder = state / "sentrel";
    }
    std::error_code ignored;
    std::string absolute = fs::absolute(folder, ignored).lexically_normal().string();
    while (absolute.size() > 1 && absolute.back() == '/') absolute.pop_back();
    return absolute;
}

// Makes one folder with exactly these permissions, whatever the process's file mode mask is.
bool MakeFolder(const std::string& path, mode_t mode) {
    if (mkdir(path.c_str(), 0700) == 0) return chmod(path.c_str(), mode) == 0;
    return errno == EEXIST;
}

bool MakeParents(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (!MakeFolder(path.substr(0, slash), 0755) && access(path.c_str(), F_OK) != 0) {
            return false;
        }
    }
    return true;
}

// Makes a folder of the machine when it is missing. Only its owners do: what another account made
// would be in their way.
bool MakeMachineFolder(const std::string& path, mode_t mode) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) {
        if (errno != ENOENT) return FailWithErrno(errno);
        if (!OwnsMachine(ThreadAccount())) return Fail(ERROR_ACCESS_DENIED);
        if (!MakeFolder(path, mode) || lstat(path.c_str(), &info) != 0) return FailWithErrno(errno);
    }
    return (S_ISDIR(info.st_mode) && OwnsMachine(info.st_uid)) || Fail(ERROR_ACCESS_DENIED);
}

}  // namespace

const std::string& EndpointFolder() {
    static const std::string folder = DecideEndpointFolder();
    return folder;
}

bool OwnsMachine(uid_t account) {
    struct stat info {};
    return account == 0 || (stat(EndpointFolder().c_str(), &info) == 0 && info.st_uid == account);
}

std::string EndpointSubfolder(const char* name, FolderUse use) {
    std::string path = EndpointFolder();
    if (!MakeParents(path + "/")) return FailWithErrno<std::string>(errno);
    const mode_t mode = use == FolderUse::kEveryoneWrites ? 01777 : 0755;
    std::istringstream parts(name);
    for (std::string part; std::getline(parts, part, '/');) {
        path += "/" + part;
        if (!MakeMachineFolder(path, mode)) return {};
    }
    return path;
}

std::string EndpointUserFolder(uid_t user) {
    std::string users = EndpointSubfolder("users", FolderUse::kEveryoneWrites);
    if (users.empty()) return {};
    std::string path = users + "/" + std::to_string(user);
    if (!MakeFolder(path, 0700)) return FailWithErrno<std::string>(errno);
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != user ||
        (info.st_mode & 0077) != 0) {
        return Fail<std::string>(ERROR_ACCESS_DENIED);
    }
    return path;
}

}  // namespace platform
