#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <sys/pidfd.h>  // not ready for C++ by itself in every version of the C library
}

#include <array>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <ctime>
#include <mutex>
#include <system_error>
#include <thread>

#include "tests/support/process.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    int get() const { return descriptor_; }
    void Reset(int descriptor) {
        Close();
        descriptor_ = descriptor;
    }
    void Close() {
        if (descriptor_ >= 0) close(descriptor_);
        descriptor_ = -1;
    }

  private:
    int descriptor_ = -1;
};

// The reading end does not block; neither end is inherited by programs that the test starts.
struct Pipe {
    Descriptor reading;
    Descriptor writing;

    Pipe() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) ThrowErrno("pipe");
        reading.Reset(ends[0]);
        writing.Reset(ends[1]);
        fcntl(reading.get(), F_SETFL, O_NONBLOCK);
    }
};

// Everything that the new process needs, made before the fork: between fork and exec only calls
// that are safe in a signal handler are allowed.
struct Launch {
    std::string program;
    std::vector<std::string> words;
    std::vector<std::string> variables;
    std::vector<char*> argv;
    std::vector<char*> envp;
    const ProcessOptions& options;
    Descriptor input{open("/dev/null", O_RDONLY | O_CLOEXEC)};

    Launch(const std::string& name, const std::vector<std::string>& arguments,
           const ProcessOptions& given)
        : program((ProgramFolder() / name).string()), words(arguments), options(given) {
        words.insert(words.begin(), program);
        for (const auto& [key, value] : options.environment) {
            variables.emplace_back(key).append("=").append(value);
        }
        for (char** entry = environ; *entry != nullptr; ++entry) {
            if (!IsReplaced(*entry)) variables.emplace_back(*entry);
        }
        for (std::string& word : words) argv.push_back(word.data());
        for (std::string& variable : variables) envp.push_back(variable.data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);
    }

    bool IsReplaced(const std::string& entry) const {
        const std::string name = entry.substr(0, entry.find('='));
        for (const auto& [key, value] : options.environment) {
            if (key == name) return true;
        }
        return false;
    }

    // In the new process. Returns only when the program could not be started.
    void Execute(int output, int errors) const {
        dup2(input.get(), STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
        if (!options.standardOutput.empty()) {
            const int file =
                open(options.standardOutput.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (file < 0) return;
            dup2(file, STDOUT_FILENO);
        }
        if (!options.workingFolder.empty() && chdir(options.workingFolder.c_str()) != 0) return;
        if (options.account) {
            const auto [user, group] = *options.account;
            if (setgroups(0, nullptr) != 0 || setresgid(group, group, group) != 0 ||
                setresuid(user, user, user) != 0) {
                return;
            }
        }
        execve(program.c_str(), argv.data(), envp.data());
    }
};

// Takes what is in the pipe now; false at its end.
bool ReadAvailable(const Descriptor& pipe, std::string& text) {
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t got = read(pipe.get(), buffer.data(), buffer.size());
        if (got < 0) return errno == EAGAIN || errno == EINTR;
        if (got == 0) return false;
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

}  // namespace

fs::path PathOfThisProgram() {
    return fs::read_symlink("/proc/self/exe");
}

fs::path ProgramFolder() {
    return PathOfThisProgram().parent_path();
}

std::chrono::milliseconds ProcessorTimeOfThisProcess() {
    return std::chrono::milliseconds(std::clock() / (CLOCKS_PER_SEC / 1000));
}

// Follows one process with a thread: collects what it writes and notices its end.
class BackgroundProcess::Watch {
  public:
    Watch(const Launch& launch, std::chrono::milliseconds timeLimit)
        : deadline_(Clock::now() + timeLimit) {
        Start(launch);
        process_.Reset(pidfd_open(id_, 0));
        if (process_.get() < 0) ThrowErrno("pidfd_open");
        thread_ = std::thread(&Watch::Follow, this);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch() {
        Signal(SIGKILL);
        thread_.join();
    }

    pid_t Id() const { return id_; }
    bool IsRunning() const {
        const std::lock_guard lock(mutex_);
        return !ended_;
    }
    std::string Output() const {
        const std::lock_guard lock(mutex_);
        return result_.output;
    }
    // Nothing happens when the process is gone already.
    void Signal(int signal) const { pidfd_send_signal(process_.get(), signal, nullptr, 0); }

    void WaitForEnd() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return ended_; });
    }
    ProcessResult Wait() {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_until(lock, deadline_, [this] { return ended_; })) {
            result_.timedOut = true;
            Signal(SIGKILL);
            changed_.wait(lock, [this] { return ended_; });
        }
        return result_;
    }
    bool WaitForOutput(const std::string& text) {
        std::unique_lock lock(mutex_);
        const auto found = [&] { return result_.output.find(text) != std::string::npos; };
        changed_.wait_until(lock, deadline_, [&] { return ended_ || found(); });
        return found();
    }

  private:
    void Start(const Launch& launch) {
        Pipe failure;
        id_ = fork();
        if (id_ < 0) ThrowErrno("fork");
        if (id_ == 0) {
            launch.Execute(output_.writing.get(), errors_.writing.get());
            const int error = errno;
            // The pipe is empty and takes this much at once.
            [[maybe_unused]] const auto put = write(failure.writing.get(), &error, sizeof error);
            _exit(127);
        }
        output_.writing.Close();
        errors_.writing.Close();
        failure.writing.Close();
        fcntl(failure.reading.get(), F_SETFL, 0);
        int error = 0;
        if (read(failure.reading.get(), &error, sizeof error) == sizeof error) {
            waitpid(id_, nullptr, 0);
            errno = error;
            ThrowErrno(launch.program);
        }
    }

    void Follow() {
        std::array<pollfd, 3> polled{{{output_.reading.get(), POLLIN, 0},
                                      {errors_.reading.get(), POLLIN, 0},
                                      {process_.get(), POLLIN, 0}}};
        for (bool ended = false; !ended;) {
            poll(polled.data(), polled.size(), -1);
            const std::lock_guard lock(mutex_);
            ended = polled[2].revents != 0;
            // After its end the pipes are emptied once more; a process that it left behind may
            // hold them open for ever.
            if (!ReadAvailable(output_.reading, result_.output)) polled[0].fd = -1;
            if (!ReadAvailable(errors_.reading, result_.errors)) polled[1].fd = -1;
            if (ended) TakeStatus();
            changed_.notify_all();
        }
    }

    void TakeStatus() {
        int status = 0;
        waitpid(id_, &status, 0);
        if (WIFEXITED(status)) result_.exitCode = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) result_.signal = WTERMSIG(status);
        ended_ = true;
    }

    const Clock::time_point deadline_;
    Pipe output_;
    Pipe errors_;
    pid_t id_ = -1;
    Descriptor process_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    ProcessResult result_;
    bool ended_ = false;
    std::thread thread_;
};

BackgroundProcess::BackgroundProcess(const std::string& program,
                                     const std::vector<std::string>& arguments,
                                     const ProcessOptions& options)
    : watch_(std::make_unique<Watch>(Launch(program, arguments, options), options.timeLimit)) {}

BackgroundProcess::BackgroundProcess(BackgroundProcess&&) noexcept = default;
BackgroundProcess& BackgroundProcess::operator=(BackgroundProcess&&) noexcept = default;
BackgroundProcess::~BackgroundProcess() = default;

unsigned BackgroundProcess::Id() const {
    return static_cast<unsigned>(watch_->Id());
}

bool BackgroundProcess::IsRunning() const {
    return watch_->IsRunning();
}

ProcessResult BackgroundProcess::Wait() {
    return watch_->Wait();
}

bool BackgroundProcess::WaitForOutput(const std::string& text) {
    return watch_->WaitForOutput(text);
}

std::string BackgroundProcess::Output() const {
    return watch_->Output();
}

void BackgroundProcess::Kill() {
    watch_->Signal(SIGKILL);
    watch_->WaitForEnd();
}

void BackgroundProcess::SendSignal(int signal) {
    watch_->Signal(signal);
}

ProcessResult RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
    return BackgroundProcess(program, arguments, options).Wait();
}
