// Programs of the build, run as processes and looked at from outside.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct ProcessOptions {
    // Variables set in addition to the test's own environment, as (name, value).
    std::vector<std::pair<std::string, std::string>> environment;
    // Where it starts; empty: where the test runs.
    std::filesystem::path workingFolder;
    // Another account to run as, by its number (only an administrator's test may).
    std::optional<unsigned> account;
    // The file that is its standard input; empty: it gets nothing.
    std::filesystem::path input = {};
};

// A process of another account; this one is a guest's.
inline constexpr unsigned kStranger = 65534;
inline ProcessOptions As(unsigned account) {
    return {{}, {}, account, {}};
}

struct ProcessResult {
    int exitCode = -1;  // -1 when a signal ended it
    int signal = 0;     // 0 when it ended by itself
    bool timedOut = false;
    std::size_t peakMemory = 0;  // the most that it held at once, in bytes
    std::string output;          // bytes of standard output...
    std::string errors;          // ... and of standard error, their lines ended as on Linux
};

// The folder with everything that the build made to run, and the running test program.
std::filesystem::path ProgramFolder();
std::filesystem::path PathOfThisProgram();
// A file that the build made, by its name without the extension that it has on this system. Throws
// when there is none.
std::filesystem::path FileOfBuild(const std::string& name);

// Time that this process's threads spent on a processor up to now.
std::chrono::milliseconds ProcessorTimeOfThisProcess();

// A running program, which one thread looks after. A wait for it ends when it neither
// computes nor writes for 20 seconds, or runs for more than ten minutes: slow machines do not take
// as long.
class BackgroundProcess {
  public:
    // Starts a program of the build by its name without extension, or any program by its absolute
    // path. Throws std::system_error when it cannot.
    BackgroundProcess(const std::string& program, const std::vector<std::string>& arguments,
                      const ProcessOptions& options = {});
    BackgroundProcess(BackgroundProcess&&) noexcept;
    BackgroundProcess& operator=(BackgroundProcess&&) noexcept;
    // Kills the process if it still runs.
    ~BackgroundProcess();

    unsigned Id() const;
    bool IsRunning() const;

    // Waits for its end; tells how it ended and all that it wrote.
    ProcessResult Wait();
    // Waits until standard output holds the text; false when it ends or its time is up without.
    bool WaitForOutput(const std::string& text);
    // What it wrote to standard output up to now.
    std::string Output() const;

    // Ends it at once, without a chance to clean up, and waits until it is gone.
    void Kill();
    // Sends a signal of the system, by its number.
    void SendSignal(int signal);

  private:
    struct Watch;
    std::unique_ptr<Watch> watch_;
};

// Runs a program to its end.
ProcessResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});
