// The kernel hands every call that changes files to this process before it is carried out, by a
// filter that a thread puts on itself and its children inherit.
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <future>
#include <memory>
#include <stdexcept>

#include "tests/support/faults.h"

namespace fs = std::filesystem;

namespace {

// The faults that can strike a call.
constexpr unsigned kKills = 1U << static_cast<unsigned>(Fault::kKill);
constexpr unsigned kDenies = 1U << static_cast<unsigned>(Fault::kAccessDenied);
constexpr unsigned kSpace = kKills | 1U << static_cast<unsigned>(Fault::kDiskFull);
constexpr unsigned kRights = kKills | kDenies;

// What holds of a call's arguments when it changes files.
using Condition = std::vector<scmp_arg_cmp>;
const Condition kAlways;
const Condition kNoStandardFile = {{0, SCMP_CMP_GT, STDERR_FILENO, 0}};  // which nobody watches
Condition HasFlag(unsigned argument, scmp_datum_t flag) {
    return {{argument, SCMP_CMP_MASKED_EQ, flag, flag}};
}

struct Calls {
    unsigned faults;
    std::vector<Condition> conditions;  // one of them is enough
    std::vector<const char*> names;
};
// clang-format off
const Calls kCalls[] = {
    {kSpace | kRights, {HasFlag(1, O_CREAT), HasFlag(1, O_TRUNC)}, {"open"}},
    {kSpace | kRights, {HasFlag(2, O_CREAT), HasFlag(2, O_TRUNC)}, {"openat"}},
    // To open a file for writing takes rights, but changes nothing yet.
    {kDenies, {HasFlag(1, O_WRONLY), HasFlag(1, O_RDWR)}, {"open"}},
    {kDenies, {HasFlag(2, O_WRONLY), HasFlag(2, O_RDWR)}, {"openat"}},
    {kSpace, {kNoStandardFile}, {"write", "writev"}},
    {kSpace, {kAlways},
     {"pwrite64", "pwritev", "pwritev2", "sendfile", "copy_file_range", "ftruncate", "fallocate",
      "fsync", "fdatasync"}},
    {kSpace | kRights, {kAlways},
     {"creat", "truncate", "rename", "renameat", "renameat2", "link", "linkat", "symlink",
      "symlinkat", "mkdir", "mkdirat"}},
    {kRights, {kAlways},
     {"unlink", "unlinkat", "rmdir", "chmod", "fchmod", "fchmodat", "chown", "fchown", "lchown",
      "fchownat"}},
};
// clang-format on

[[noreturn]] void Throw(const char* what) {
    throw std::runtime_error(what);
}

struct ReleaseFilter {
    void operator()(void* filter) const {
        seccomp_release(filter);
        // The library keeps the listener of the last filter, and asks for no other until it is
        // closed.
        seccomp_reset(nullptr, SCMP_ACT_KILL);
    }
};
using Filter = std::unique_ptr<void, ReleaseFilter>;

Filter MakeFilter(Fault fault) {
    Filter filter(seccomp_init(SCMP_ACT_ALLOW));
    if (!filter) Throw("seccomp_init");
    for (const Calls& calls : kCalls) {
        if ((calls.faults >> static_cast<unsigned>(fault) & 1) == 0) continue;
        for (const char* name : calls.names) {
            const int number = seccomp_syscall_resolve_name(name);
            if (number < 0) continue;  // a call that this processor's system does not have
            for (const Condition& when : calls.conditions) {
                if (seccomp_rule_add_array(filter.get(), SCMP_ACT_NOTIFY, number,
                                           static_cast<unsigned>(when.size()), when.data()) != 0) {
                    Throw(name);
                }
            }
        }
    }
    return filter;
}

std::string NameOf(const seccomp_data& data) {
    const std::unique_ptr<char, decltype(&free)> name(
        seccomp_syscall_resolve_num_arch(data.arch, data.nr), free);
    return name ? name.get() : "";
}

}  // namespace

FaultyRun RunWithFault(Fault fault, std::size_t at, const std::string& program,
                       const std::vector<std::string>& arguments) {
    // 1. A thread puts the filter on itself and starts the program.
    const Filter filter = MakeFilter(fault);
    std::promise<pid_t> filtered;
    auto result = std::async(std::launch::async, [&] {
        const bool isLoaded = seccomp_load(filter.get()) == 0;
        filtered.set_value(isLoaded ? gettid() : 0);
        return isLoaded ? RunProgram(program, arguments) : ProcessResult();
    });
    const pid_t starter = filtered.get_future().get();
    if (starter == 0) Throw("seccomp_load");
    // 2. Every call that comes passes, but the one, until nobody is left to make any.
    std::vector<std::string> calls;
    pollfd listener{seccomp_notify_fd(filter.get()), POLLIN, 0};
    for (; (listener.revents & POLLHUP) == 0; poll(&listener, 1, -1)) {
        seccomp_notif request{};
        if ((listener.revents & POLLIN) == 0) continue;
        if (seccomp_notify_receive(listener.fd, &request) != 0) continue;  // killed meanwhile
        seccomp_notif_resp response{request.id, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE};
        // What the thread that starts the program does itself is no business of the program.
        const auto caller = static_cast<pid_t>(request.pid);
        if (caller != starter) {
            if (calls.size() == at && fault == Fault::kKill) {
                kill(caller, SIGKILL);
            } else if (calls.size() == at) {
                response.flags = 0;
                response.error = fault == Fault::kDiskFull ? -ENOSPC : -EACCES;
            }
            calls.push_back(NameOf(request.data));
        }
        seccomp_notify_respond(listener.fd, &response);
    }
    return {result.get(), std::move(calls)};
}

SmallDisk::SmallDisk(const fs::path& folder, std::size_t bytes) : folder_(folder) {
    const fs::path aside = folder.string() + ".aside";
    const std::string options = "mode=1777,size=" + std::to_string(bytes);
    isMounted_ = geteuid() == 0 && unshare(CLONE_NEWNS) == 0 &&
                 mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!isMounted_) return;
    fs::copy(folder, aside, fs::copy_options::recursive);
    isMounted_ = mount("none", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
    if (isMounted_) {
        fs::permissions(folder, fs::status(aside).permissions());
        fs::copy(aside, folder, fs::copy_options::recursive);
    }
    fs::remove_all(aside);
}

SmallDisk::~SmallDisk() {
    if (isMounted_) umount2(folder_.c_str(), MNT_DETACH);
}

void SmallDisk::Fill(std::size_t free) const {
    Empty();
    std::ofstream filler(folder_ / "filler", std::ios::binary);
    const std::size_t size = fs::space(folder_).available;
    filler << std::string(size > free ? size - free : 0, 'x');
}

void SmallDisk::Empty() const {
    fs::remove(folder_ / "filler");
}
