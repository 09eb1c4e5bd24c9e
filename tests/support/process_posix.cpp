#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <sys/pidfd.h>  // not ready for C++ by itself in every version of the C library
}

#include <array>
#include <cerrno>
#include <ctime>
#include <system_error>
#include <thread>

#include "tests/support/process_port.h"

namespace fs = std::filesystem;

namespace {

void ThrowUnless(bool succeeded, const std::string& what, int error = errno) {
    if (!succeeded) throw std::system_error(error, std::generic_category(), what);
}

class Descriptor {
  public:
    Descriptor(int descriptor, const char* call) : descriptor_(descriptor) {
        ThrowUnless(descriptor >= 0, call);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(descriptor_); }

    int get() const { return descriptor_; }

  private:
    const int descriptor_;
};

// A file in memory that takes what a program writes to one of its outputs.
struct OutputFile : Descriptor {
    OutputFile() : Descriptor(memfd_create("output", MFD_CLOEXEC), "memfd_create") {}

    // Adds what is behind the text.
    void TakeInto(std::string& text) const {
        std::array<char, 4096> part{};
        const auto end = [&] { return static_cast<off_t>(text.size()); };
        for (ssize_t got = 0; (got = pread(get(), part.data(), part.size(), end())) > 0;) {
            text.append(part.data(), static_cast<std::size_t>(got));
        }
    }
};

// As the calls take texts, which they do not change.
std::vector<char*> Pointers(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.data()));
    pointers.push_back(nullptr);
    return pointers;
}

// To the kernel, rights are a thread's own.
int BecomeAccount(unsigned account) {
    const bool isDone = syscall(SYS_setgroups, 0, nullptr) == 0 &&
                        syscall(SYS_setresgid, account, account, account) == 0 &&
                        syscall(SYS_setresuid, account, account, account) == 0;
    return isDone ? 0 : errno;
}

class PosixProcess : public ChildProcess {
  public:
    PosixProcess(const fs::path& program, const std::vector<std::string>& arguments,
                 const ProcessOptions& options)
        : id_(Spawn(program, arguments, options)), process_(pidfd_open(id_, 0), "pidfd_open") {}

    unsigned Id() const override { return static_cast<unsigned>(id_); }
    bool EndsWithin(std::chrono::milliseconds time, ProcessResult& result) override {
        pollfd polled{process_.get(), POLLIN, 0};
        if (poll(&polled, 1, static_cast<int>(time.count())) != 1) return false;
        int status = 0;
        rusage use{};
        wait4(id_, &status, 0, &use);
        result.peakMemory = static_cast<std::size_t>(use.ru_maxrss) * 1024;
        if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
        return true;
    }
    void TakeOutput(ProcessResult& result) override {
        output_.TakeInto(result.output);
        errors_.TakeInto(result.errors);
    }
    std::chrono::milliseconds ProcessorTime() const override {
        clockid_t clock = 0;
        timespec time{};
        if (clock_getcpuclockid(id_, &clock) == 0) clock_gettime(clock, &time);
        return std::chrono::milliseconds(time.tv_sec * 1000 + time.tv_nsec / 1'000'000);
    }
    void Signal(int signal) override { pidfd_send_signal(process_.get(), signal, nullptr, 0); }

  private:
    pid_t Spawn(const fs::path& program, std::vector<std::string> words,
                const ProcessOptions& options) const {
        // 1. Its words and its environment, in which the first of two variables of a name counts.
        words.insert(words.begin(), program);
        std::vector<std::string> variables;
        for (const auto& [name, value] : options.environment) {
            variables.emplace_back(name).append("=").append(value);
        }
        for (char** entry = environ; *entry != nullptr; ++entry) variables.emplace_back(*entry);
        // 2. Its files and its folder.
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const fs::path input = options.input.empty() ? "/dev/null" : options.input;
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, output_.get(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, errors_.get(), STDERR_FILENO);
        if (!options.workingFolder.empty()) {
            posix_spawn_file_actions_addchdir_np(&actions, options.workingFolder.c_str());
        }
        // 3. Its account, that of a thread which goes at once.
        pid_t id = 0;
        int error = 0;
        std::thread([&] {
            if (options.account) error = BecomeAccount(*options.account);
            if (error != 0) return;
            error = posix_spawn(&id, program.c_str(), &actions, nullptr, Pointers(words).data(),
                                Pointers(variables).data());
        }).join();
        posix_spawn_file_actions_destroy(&actions);
        ThrowUnless(error == 0, program, error);
        return id;
    }

    const OutputFile output_;
    const OutputFile errors_;
    const pid_t id_;
    const Descriptor process_;
};

}  // namespace

std::unique_ptr<ChildProcess> ChildProcess::Start(const fs::path& program,
                                                  const std::vector<std::string>& arguments,
                                                  const ProcessOptions& options) {
    return std::make_unique<PosixProcess>(program, arguments, options);
}

fs::path PathOfThisProgram() {
    return fs::read_symlink("/proc/self/exe");
}

std::chrono::milliseconds ProcessorTimeOfThisProcess() {
    return std::chrono::milliseconds(std::clock() / (CLOCKS_PER_SEC / 1000));
}
