#include "tests/support/process.h"

#include <stdexcept>

#include "tests/support/process_port.h"

using Clock = std::chrono::steady_clock;

// A program that computes and writes nothing for that long while a test waits for it hangs.
static constexpr std::chrono::seconds kMaxStandstill(20);

struct BackgroundProcess::Watch {
    explicit Watch(std::unique_ptr<ChildProcess> child) : process(std::move(child)) {}
    ~Watch() { Kill(); }

    // Takes what there is of it, after its end or so much time.
    bool EndsWithin(std::chrono::milliseconds time) {
        if (!hasEnded) hasEnded = process->EndsWithin(time, result);
        process->TakeOutput(result);
        return hasEnded;
    }
    // True when the condition comes to hold before its end, and before it hangs or takes too long.
    template <typename Condition>
    bool WaitUntil(Condition holds) {
        auto progress = Progress();
        auto progressed = Clock::now();
        for (bool isOver = false; !isOver;) {
            isOver = EndsWithin(std::chrono::milliseconds(5));
            const auto now = Clock::now();
            if (std::exchange(progress, Progress()) != progress) progressed = now;
            if (now > limit || now > progressed + kMaxStandstill) isOver = true;
            if (holds()) return true;
        }
        return false;
    }
    // Changes while the program works: the time that it computed and what it wrote.
    std::pair<std::chrono::milliseconds, std::size_t> Progress() const {
        const auto computed = hasEnded ? std::chrono::milliseconds(0) : process->ProcessorTime();
        return {computed, result.output.size() + result.errors.size()};
    }
    void Kill() {
        if (hasEnded) return;
        constexpr int kKill = 9;
        process->Signal(kKill);
        EndsWithin(std::chrono::minutes(1));
    }

    const std::unique_ptr<ChildProcess> process;
    const Clock::time_point limit = Clock::now() + std::chrono::minutes(10);
    ProcessResult result;
    bool hasEnded = false;
};

std::filesystem::path ProgramFolder() {
    return PathOfThisProgram().parent_path();
}

std::filesystem::path FileOfBuild(const std::string& name) {
    for (const auto& entry : std::filesystem::directory_iterator(ProgramFolder())) {
        if (entry.path().stem() == name) return entry.path();
    }
    throw std::runtime_error("not in the build: " + name);
}

BackgroundProcess::BackgroundProcess(const std::string& program,
                                     const std::vector<std::string>& arguments,
                                     const ProcessOptions& options)
    : watch_(std::make_unique<Watch>(
          ChildProcess::Start(ProgramFolder() / program, arguments, options))) {}

BackgroundProcess::BackgroundProcess(BackgroundProcess&&) noexcept = default;
BackgroundProcess& BackgroundProcess::operator=(BackgroundProcess&&) noexcept = default;
BackgroundProcess::~BackgroundProcess() = default;

unsigned BackgroundProcess::Id() const {
    return watch_->process->Id();
}

bool BackgroundProcess::IsRunning() const {
    return !watch_->EndsWithin(std::chrono::milliseconds(0));
}

ProcessResult BackgroundProcess::Wait() {
    watch_->result.timedOut = !watch_->WaitUntil([&] { return watch_->hasEnded; });
    watch_->Kill();
    return watch_->result;
}

bool BackgroundProcess::WaitForOutput(const std::string& text) {
    return watch_->WaitUntil([&] { return watch_->result.output.find(text) != std::string::npos; });
}

std::string BackgroundProcess::Output() const {
    watch_->EndsWithin(std::chrono::milliseconds(0));
    return watch_->result.output;
}

void BackgroundProcess::Kill() {
    watch_->Kill();
}

void BackgroundProcess::SendSignal(int signal) {
    watch_->process->Signal(signal);
}

ProcessResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
    return BackgroundProcess(program, arguments, options).Wait();
}
