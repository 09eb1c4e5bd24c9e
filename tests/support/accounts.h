// Users of the machine by choice, as the layer keeps them: a test asks for the capability first.
#pragma once

#include "tests/support/machine.h"

// Lets a user be logged on to a session of the machine, by account name or number.
inline void LogOn(const std::filesystem::path& endpoint, unsigned session,
                  const std::string& user) {
    std::filesystem::create_directories(endpoint / "sessions");
    WriteWholeFile(endpoint / "sessions" / std::to_string(session), user + "\n");
}

// Makes a file or folder another account's.
inline void GiveTo(const std::filesystem::path& path, unsigned account) {
    ASSERT_EQ(RunProgram("/bin/chown", {std::to_string(account), path.string()}).exitCode, 0);
}

// Starts a program that does nothing for a minute, under the file name given by `path`.
inline BackgroundProcess StartWaitingProgram(const std::filesystem::path& path,
                                             const ProcessOptions& options) {
    std::filesystem::copy_file("/bin/sleep", path);
    return {path.string(), {"60"}, options};
}
