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

using namespace platform;

namespace {

constexpr DWORD kSupportedAccess =
    PROCESS_QUERY_INFORMATION | PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE;

FILETIME TimeOfTicks(ULONGLONG ticks) {
    constexpr ULONGLONG kUnitsInSecond = 10'000'000;
    const ULONGLONG units = ticks * kUnitsInSecond / static_cast<ULONGLONG>(sysconf(_SC_CLK_TCK));
    return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
}

// The right to all information comes with that to some of it.
DWORD WithImplied(DWORD access) {
    const bool isFull = (access & PROCESS_QUERY_INFORMATION) != 0;
    return isFull ? access | PROCESS_QUERY_LIMITED_INFORMATION : access;
}

}  // namespace

Process::Process(pid_t id, DWORD access, UniqueDescriptor descriptor)
    : GrantedObject(WithImplied(access)),
      id_(id),
      descriptor_(std::move(descriptor)),
      folder_(id) {}

std::shared_ptr<Process> Process::Open(pid_t id, DWORD access) {
    UniqueDescriptor descriptor(static_cast<int>(syscall(SYS_pidfd_open, id, 0)));
    if (!descriptor) {
        const bool noHandles = errno == EMFILE || errno == ENFILE || errno == ENOMEM;
        return Fail<std::shared_ptr<Process>>(noHandles ? ErrorOfErrno(errno)
                                                        : ERROR_INVALID_PARAMETER);
    }
    auto process = std::make_shared<Process>(id, access, std::move(descriptor));
    // When the process is still there after its folder was opened, both are of the same one.
    const bool ended =
        syscall(SYS_pidfd_send_signal, process->descriptor_.get(), 0, nullptr, 0) != 0 &&
        errno == ESRCH;
    if (ended || !process->Folder().IsOpen()) {
        return Fail<std::shared_ptr<Process>>(ERROR_INVALID_PARAMETER);
    }
    // Who may look at a process is the kernel's to say; threads of the kernel have no program.
    if (process->Folder().ProgramPath().empty() && (errno == EACCES || errno == EPERM)) {
        return Fail<std::shared_ptr<Process>>(ERROR_ACCESS_DENIED);
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

std::shared_ptr<Process> platform::ProcessOf(HANDLE handle, DWORD rights) {
    if (handle == GetCurrentProcess()) return Process::Open(getpid(), kSupportedAccess);
    return ObjectOf<Process>(handle, rights);
}

extern "C" DWORD WINAPI GetCurrentProcessId() {
    return static_cast<DWORD>(getpid());
}

extern "C" DWORD WINAPI GetCurrentThreadId() {
    return static_cast<DWORD>(gettid());
}

extern "C" HANDLE WINAPI GetCurrentProcess() {
    return reinterpret_cast<HANDLE>(LONG_PTR{-1});
}

extern "C" HANDLE WINAPI GetCurrentThread() {
    return reinterpret_cast<HANDLE>(LONG_PTR{-2});
}

extern "C" HANDLE WINAPI OpenProcess(DWORD dwDesiredAccess, BOOL bInheritHandle,
                                     DWORD dwProcessId) {
    if ((dwDesiredAccess & ~kSupportedAccess) != 0 || bInheritHandle) {
        return Fail<HANDLE>(ERROR_NOT_SUPPORTED);
    }
    auto process = Process::Open(static_cast<pid_t>(dwProcessId), dwDesiredAccess);
    return process ? OpenHandle(std::move(process)) : nullptr;
}

extern "C" BOOL WINAPI GetProcessTimes(HANDLE hProcess, LPFILETIME lpCreationTime,
                                       LPFILETIME lpExitTime, LPFILETIME lpKernelTime,
                                       LPFILETIME lpUserTime) {
    const auto process = ProcessOf(hProcess, PROCESS_QUERY_LIMITED_INFORMATION);
    if (!process) return FALSE;
    const auto times = process->Folder().Times();
    if (times.start == 0) return Fail(ERROR_ACCESS_DENIED);  // it has ended
    *lpCreationTime = TimeOfTicks(times.start);
    *lpExitTime = {};
    *lpKernelTime = TimeOfTicks(times.kernel);
    *lpUserTime = TimeOfTicks(times.user);
    return TRUE;
}
