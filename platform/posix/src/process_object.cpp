#include "process_object.h"

#include <poll.h>
#include <processthreadsapi.h>
#include <synchapi.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "deadline.h"
#include "last_error.h"

namespace platform {
namespace {

constexpr DWORD kSupportedAccess =
    PROCESS_QUERY_INFORMATION | PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE;

}  // namespace

Process::Process(pid_t id, DWORD access, UniqueDescriptor descriptor)
    : id_(id), access_(access), descriptor_(std::move(descriptor)), folder_(id) {}

std::shared_ptr<Process> Process::Open(pid_t id, DWORD access) {
    UniqueDescriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, id, 0)));
    if (!descriptor) {
        const bool noHandles = errno == EMFILE || errno == ENFILE || errno == ENOMEM;
        Fail(noHandles ? ErrorOfErrno(errno) : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto process = std::make_shared<Process>(id, access, std::move(descriptor));
    // When the process is still there after its folder was opened, both are of the same one.
    const bool ended =
        syscall(SYS_pidfd_send_signal, process->descriptor_.get(), 0, nullptr, 0) != 0 &&
        errno == ESRCH;
    if (ended || !process->Folder().IsOpen()) {
        Fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    // Who may look at a process is the kernel's to say; threads of the kernel have no program.
    if (process->Folder().ProgramPath().empty() && (errno == EACCES || errno == EPERM)) {
        Fail(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    return process;
}

DWORD Process::Wait(const Deadline& deadline) {
    if (!Allows(SYNCHRONIZE)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return WAIT_FAILED;
    }
    pollfd polled{descriptor_.get(), POLLIN, 0};
    for (;;) {
        const int ready = poll(&polled, 1, deadline.PollTimeout());
        if (ready > 0) return WAIT_OBJECT_0;
        if (ready == 0 && deadline.HasPassed()) return WAIT_TIMEOUT;
        if (ready < 0 && errno != EINTR) {
            FailWithErrno(errno);
            return WAIT_FAILED;
        }
    }
}

std::shared_ptr<Process> ProcessOf(HANDLE handle, DWORD anyOf) {
    if (handle == GetCurrentProcess()) return Process::Open(getpid(), kSupportedAccess);
    auto process = ObjectOf<Process>(handle);
    if (!process) return nullptr;
    for (DWORD right = 1; right != 0; right <<= 1) {
        if ((anyOf & right) != 0 && process->Allows(right)) return process;
    }
    Fail(ERROR_ACCESS_DENIED);
    return nullptr;
}

namespace {

FILETIME TimeOfTicks(ULONGLONG ticks) {
    constexpr ULONGLONG kUnitsInSecond = 10'000'000;
    const ULONGLONG units = ticks * kUnitsInSecond / static_cast<ULONGLONG>(sysconf(_SC_CLK_TCK));
    return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
}

}  // namespace
}  // namespace platform

extern "C" HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle,
                                     DWORD dwProcessId) {
    using platform::Fail;
    if ((dwDesiredAccess & ~platform::kSupportedAccess) != 0 || bInheritHandle) {
        Fail(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    auto process = platform::Process::Open(static_cast<pid_t>(dwProcessId), dwDesiredAccess);
    return process ? platform::OpenHandle(std::move(process)) : nullptr;
}

extern "C" BOOL WINAPI GetProcessTimes(HANDLE hProcess, LPFILETIME lpCreationTime,
                                       LPFILETIME lpExitTime, LPFILETIME lpKernelTime,
                                       LPFILETIME lpUserTime) {
    using platform::TimeOfTicks;
    const auto process = platform::ProcessOf(
        hProcess, PROCESS_QUERY_INFORMATION | PROCESS_QUERY_LIMITED_INFORMATION);
    if (!process) return FALSE;
    const auto times = process->Folder().Times();
    if (times.start == 0) return platform::Fail(ERROR_ACCESS_DENIED);  // it has ended
    *lpCreationTime = TimeOfTicks(times.start);
    *lpExitTime = {};
    *lpKernelTime = TimeOfTicks(times.kernel);
    *lpUserTime = TimeOfTicks(times.user);
    return TRUE;
}
