#include "tests/support/accounts.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

namespace fs = std::filesystem;

void LogOn(const fs::path& endpoint, unsigned session, const std::string& user) {
    fs::create_directories(endpoint / "sessions");
    std::ofstream(endpoint / "sessions" / std::to_string(session)) << user << "\n";
}

void SwitchVirtualizationOn(const fs::path& endpoint) {
    std::ofstream(endpoint / "virtualization");
}

unsigned OwnerOf(const fs::path& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? info.st_uid : ~0U;
}

void HideFromStrangers(const fs::path& path) {
    chmod(path.c_str(), 0640);
}

std::vector<unsigned> GroupsOfThread() {
    std::vector<unsigned> groups(static_cast<std::size_t>(getgroups(0, nullptr)));
    if (getgroups(static_cast<int>(groups.size()), groups.data()) < 0) return {};
    return groups;
}

BackgroundProcess StartWaitingProgram(const fs::path& path, const ProcessOptions& options) {
    fs::copy_file("/bin/sleep", path, fs::copy_options::skip_existing);
    return {path.string(), {"60"}, options};
}

std::pair<std::string, std::string> SessionVariable(unsigned session) {
    return {"XDG_SESSION_ID", std::to_string(session)};
}
