// Programs of the build, run as processes and looked at from outside.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Who a program runs as: numbers of the system's accounts.
struct Account {
    unsigned user;
    unsigned group;
};

struct ProcessOptions {
    // Variables set in addition to the test's own environment, as (name, value).
    std::vector<std::pair<std::string, std::string>> environment;
    // The process is killed when it runs longer.
    std::chrono::milliseconds timeLimit = std::chrono::seconds(60);
    // Where it starts; empty: where the test runs.
    std::filesystem::path workingFolder;
    // Another account to run as (only an administrator's test may).
    std::optional<Account> account;
    // A file or device that becomes its standard output; empty: the test reads the output.
    std::filesystem::path standardOutput;
};

struct ProcessResult {
    int exitCode = -1;  // -1 when a signal ended it
    int signal = 0;     // 0 when it ended by itself
    bool timedOut = false;
    std::string output;  // bytes of standard output...
    std::string errors;  // ... and of standard error
};

// The folder with everything that the build made to run, and the running test program.
std::filesystem::path ProgramFolder();
std::filesystem::path PathOfThisProgram();

// Time that this process's threads spent on a processor up to now.
std::chrono::milliseconds ProcessorTimeOfThisProcess();

// A running program. Its standard input is empty.
class BackgroundProcess {
  public:
    // Starts a program of the build by its name without extension, or any program by its absolute
    // path. Throws std::system_error when there is no such program.
    BackgroundProcess(const std::string& program, const std::vector<std::string>& arguments,
                      const ProcessOptions& options = {});
    BackgroundProcess(BackgroundProcess&&) noexcept;
    BackgroundProcess& operator=(BackgroundProcess&&) noexcept;
    // Kills the process if it still runs.
    ~BackgroundProcess();

    unsigned Id() const;
    bool IsRunning() const;

    // Waits for its end - for the rest of its time limit, counted from the start, after which it is
    // killed - and tells how it ended and all that it wrote.
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
    class Watch;
    std::unique_ptr<Watch> watch_;
};

// Runs a program to its end.
ProcessResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});
