// Accounts, sessions and processes of other users, each in the system's own way.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/process.h"

// Lets a user be logged on to a session of the machine, by account name or number.
void LogOn(const std::filesystem::path& endpoint, unsigned session, const std::string& user);

// Processes that start from now on have virtualization switched on.
void SwitchVirtualizationOn(const std::filesystem::path& endpoint);

// The account that owns a file.
unsigned OwnerOf(const std::filesystem::path& path);
// Makes a file that only the process's own account and its group may read.
void HideFromStrangers(const std::filesystem::path& path);

// The groups that the calling thread acts for.
std::vector<unsigned> GroupsOfThread();

// Starts a program that does nothing for a minute, under the file name given by `path`.
BackgroundProcess StartWaitingProgram(const std::filesystem::path& path,
                                      const ProcessOptions& options = {});

// The variable by which a process tells its session where the machine keeps none.
std::pair<std::string, std::string> SessionVariable(unsigned session);
