// A program that runs, as the system knows it.
#pragma once

#include "tests/support/process.h"

struct ChildProcess {
    // Throws std::system_error when it cannot.
    static std::unique_ptr<ChildProcess> Start(const std::filesystem::path& program,
                                               const std::vector<std::string>& arguments,
                                               const ProcessOptions& options);
    virtual ~ChildProcess() = default;

    virtual unsigned Id() const = 0;
    // Waits so long for its end; once it has come tells how, and true.
    virtual bool EndsWithin(std::chrono::milliseconds time, ProcessResult& result) = 0;
    // Adds what it wrote meanwhile.
    virtual void TakeOutput(ProcessResult& result) = 0;
    // That its threads spent on a processor up to now.
    virtual std::chrono::milliseconds ProcessorTime() const = 0;
    // Nothing happens when it is gone already.
    virtual void Signal(int signal) = 0;
};
