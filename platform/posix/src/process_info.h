// What the system tells about its processes.
#pragma once

#include <string>
#include <vector>

#include "descriptor.h"
#include "thread_identity.h"

namespace platform {

struct ProcessInfo {
    pid_t id = 0;
    pid_t parent = 0;
    uid_t user = 0;
    std::string name;  // of the program's file, without folder
};

// Every live process, in the order of their numbers. The name of a program that the caller may not
// see is the one that the process shows, which has 15 characters at most.
std::vector<ProcessInfo> ListProcesses();

// One process, pinned: once it is gone every question fails, also when its number is in use again.
class ProcessFolder {
  public:
    // Not open, with errno set, when there is no such process.
    explicit ProcessFolder(pid_t process);
    bool IsOpen() const { return static_cast<bool>(folder_); }

    // The path of its program; empty with errno set when the caller may not see it.
    std::string ProgramPath() const;
    // The content of one of its information files; empty with errno set on failure.
    std::string Read(const char* file) const;
    // When it started, from the system's start, and what it has spent, in clock ticks; zeros when
    // it is gone.
    struct Ticks {
        unsigned long long start = 0, user = 0, kernel = 0;
    };
    Ticks Times() const;

  private:
    UniqueDescriptor folder_;
};

// The values of a line "<field>: ..." of a status file, as numbers.
std::vector<unsigned> StatusNumbers(const std::string& status, const std::string& field);

// The part of a path behind its last slash.
std::string LastPart(const std::string& path);

}  // namespace platform
