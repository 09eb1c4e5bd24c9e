#include "sessions.h"

#include <pwd.h>

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "endpoint.h"

namespace platform {
namespace {

template <typename Number>
std::optional<Number> NumberOf(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return number;
}

std::optional<uid_t> UserNamed(const std::string& name) {
    if (const auto number = NumberOf<uid_t>(name)) return number;
    std::array<char, 4096> text{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwnam_r(name.c_str(), &entry, text.data(), text.size(), &found) != 0 ||
        found == nullptr) {
        return std::nullopt;
    }
    return entry.pw_uid;
}

std::string FirstLine(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    return line;
}

// A variable of a process's environment; empty when it is not there or may not be seen.
std::string VariableOf(pid_t process, std::string_view name) {
    const std::string prefix = std::string(1, '\0').append(name).append("=");
    const ProcessFolder folder(process);
    if (!folder.IsOpen()) return {};
    const std::string environment = std::string(1, '\0') + folder.Read("environ");
    const std::size_t at = environment.find(prefix);
    if (at == std::string::npos) return {};
    return environment.c_str() + at + prefix.size();
}

}  // namespace

SessionTable::SessionTable() {
    const std::filesystem::path folder = EndpointFolder() + "/sessions";
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const auto session = NumberOf<DWORD>(entry.path().filename().string());
        if (session) users_[*session] = UserNamed(FirstLine(entry.path()));
    }
    kept_ = error != std::errc::no_such_file_or_directory;
}

std::optional<uid_t> SessionTable::UserOf(DWORD session) const {
    const auto found = users_.find(session);
    return found == users_.end() ? std::nullopt : found->second;
}

DWORD SessionTable::SessionOf(const ProcessInfo& process) const {
    if (!kept_) return NumberOf<DWORD>(VariableOf(process.id, "XDG_SESSION_ID")).value_or(0);
    for (const auto& [session, user] : users_) {
        if (user == process.user) return session;
    }
    return 0;
}

}  // namespace platform
