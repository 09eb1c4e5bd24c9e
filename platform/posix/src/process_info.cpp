#include "process_info.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <sstream>

namespace platform {
namespace {

// Who started this process, as it was when this library was loaded: the system forgets a parent
// that has ended.
const struct Origin {
    pid_t process = getpid();
    pid_t parent = getppid();
} origin;

std::vector<pid_t> ProcessNumbers() {
    std::vector<pid_t> numbers;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos) {
            numbers.push_back(static_cast<pid_t>(std::stol(name)));
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

// False when the process has ended meanwhile.
bool Describe(pid_t process, ProcessInfo& info) {
    const ProcessFolder folder(process);
    if (!folder.IsOpen()) return false;
    const std::string status = folder.Read("status");
    const auto parent = StatusNumbers(status, "PPid");
    const auto users = StatusNumbers(status, "Uid");
    if (parent.empty() || users.size() < 2) return false;
    info.id = process;
    info.parent = process == origin.process ? origin.parent : static_cast<pid_t>(parent.front());
    info.user = users[1];  // the effective one
    info.name = LastPart(folder.ProgramPath());
    std::istringstream shown(folder.Read("comm"));
    if (info.name.empty()) std::getline(shown, info.name);
    return true;
}

}  // namespace

std::vector<ProcessInfo> ListProcesses() {
    std::vector<ProcessInfo> processes;
    for (const pid_t number : ProcessNumbers()) {
        ProcessInfo info;
        if (Describe(number, info)) processes.push_back(std::move(info));
    }
    return processes;
}

ProcessFolder::ProcessFolder(pid_t process)
    : folder_(
          open(("/proc/" + std::to_string(process)).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

std::string ProcessFolder::ProgramPath() const {
    std::array<char, 4096> path{};
    const ssize_t length = readlinkat(folder_.get(), "exe", path.data(), path.size());
    if (length <= 0) return {};
    std::string text(path.data(), static_cast<std::size_t>(length));
    const std::string deleted = " (deleted)";
    if (text.ends_with(deleted)) text.erase(text.size() - deleted.size());
    return text;
}

std::string ProcessFolder::Read(const char* file) const {
    const UniqueDescriptor opened(openat(folder_.get(), file, O_RDONLY | O_CLOEXEC));
    if (!opened) return {};
    std::string text;
    std::array<char, 4096> piece{};
    ssize_t got = 0;
    while ((got = read(opened.get(), piece.data(), piece.size())) > 0) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    return got < 0 ? std::string() : text;
}

ProcessFolder::Ticks ProcessFolder::Times() const {
    // Behind the name, which may hold anything: the state, and numbers from the fourth field on.
    const std::string stat = Read("stat");
    const auto name = stat.rfind(')');
    Ticks times;
    if (name == std::string::npos ||
        std::sscanf(stat.c_str() + name,
                    ") %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %llu %llu %*d %*d %*d %*d %*d "
                    "%*d %llu",
                    &times.user, &times.kernel, &times.start) != 3) {
        return {};
    }
    return times;
}

std::vector<unsigned> StatusNumbers(const std::string& status, const std::string& field) {
    std::vector<unsigned> numbers;
    const std::size_t line = ("\n" + status).find("\n" + field + ":");
    if (line == std::string::npos) return numbers;
    const std::size_t start = line + field.size() + 1;
    std::istringstream values(status.substr(start, status.find('\n', start) - start));
    for (unsigned value = 0; values >> value;) numbers.push_back(value);
    return numbers;
}

std::string LastPart(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace platform
