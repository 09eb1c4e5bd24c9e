// Faults in what a program does to files, caused for real at one chosen system call.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/process.h"

enum class Fault {
    kKill,          // the program is killed just before the call
    kDiskFull,      // the call does nothing but fail, because the disk is full...
    kAccessDenied,  // ... or because the account may not
};

struct FaultyRun {
    ProcessResult result;
    // The calls that the fault can strike, in the order in which the program made them, by name.
    std::vector<std::string> calls;
};

// Runs a program of the build to its end. The fault strikes at the call `at` of those that create,
// write, rename, remove or otherwise change files and that it can strike at all - a full disk keeps
// nobody from removing a file. They are counted from 0 over all the program's threads and child
// processes; where there are fewer, nothing happens.
FaultyRun RunWithFault(Fault fault, std::size_t at, const std::string& program,
                       const std::vector<std::string>& arguments);

// A small disk of the test's own, over a folder whose files it takes over, until the object goes.
// False where the system lets the test have none.
class SmallDisk {
  public:
    SmallDisk(const std::filesystem::path& folder, std::size_t bytes);
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk();

    explicit operator bool() const { return isMounted_; }
    // Leaves about so many bytes free, until the next call of either.
    void Fill(std::size_t free) const;
    void Empty() const;

  private:
    const std::filesystem::path folder_;
    bool isMounted_ = false;
};
