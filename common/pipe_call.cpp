#include "common/pipe_call.h"

#include <algorithm>

#include "common/handles.h"
#include "common/security.h"

namespace {

// What is left of a time limit.
class Deadline {
  public:
    explicit Deadline(DWORD milliseconds)
        : isInfinite_(milliseconds == INFINITE), end_(GetTickCount64() + milliseconds) {}

    DWORD Left() const {
        if (isInfinite_) return INFINITE;
        const ULONGLONG now = GetTickCount64();
        return now < end_ ? static_cast<DWORD>(end_ - now) : 0;
    }

  private:
    bool isInfinite_;
    ULONGLONG end_;
};

// Runs one overlapped operation of a pipe to its end, or cancels it when the time is up. `start`
// gets the OVERLAPPED and returns what the system's call did.
template <typename Start>
DWORD RunInTime(HANDLE pipe, DWORD milliseconds, DWORD& transferred, Start start) {
    const UniqueHandle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!ended) return GetLastError();
    OVERLAPPED operation = {};
    operation.hEvent = ended.get();
    if (!start(&operation)) {
        const DWORD error = GetLastError();
        if (error != ERROR_IO_PENDING) return error;
    }
    const bool isLate = WaitForSingleObject(ended.get(), milliseconds) != WAIT_OBJECT_0;
    if (isLate) CancelIoEx(pipe, &operation);
    // Waits also for the end of the cancelled operation, which uses the caller's memory until then.
    if (GetOverlappedResult(pipe, &operation, &transferred, TRUE)) return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    return isLate && error == ERROR_OPERATION_ABORTED ? ERROR_SEM_TIMEOUT : error;
}

// Opens the pipe as soon as an instance of it is free.
DWORD OpenInTime(const WCHAR* name, const Deadline& deadline, UniqueHandle& pipe) {
    for (;;) {
        pipe.reset(CreateFileW(
            name, kPipeCallerRights, 0, nullptr, OPEN_EXISTING,
            FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
        if (pipe) return ERROR_SUCCESS;
        const DWORD error = GetLastError();
        if (error != ERROR_PIPE_BUSY) return error;
        // 0 would select the server's own time limit.
        if (!WaitNamedPipeW(name, std::max(deadline.Left(), DWORD{1}))) return GetLastError();
        if (deadline.Left() == 0) return ERROR_SEM_TIMEOUT;
    }
}

}  // namespace

DWORD CallPipe(const WCHAR* pipe, const void* request, DWORD requestSize, void* reply,
               DWORD& replySize, DWORD milliseconds, PipeServer server) {
    const Deadline deadline(milliseconds);
    UniqueHandle client;
    const DWORD opened = OpenInTime(pipe, deadline, client);
    if (opened != ERROR_SUCCESS) return opened;
    // The owner is asked of the connection itself: the name may be another server's by now.
    if (server == PipeServer::kTrusted &&
        !IsOwnedByAdministrators(client.get(), SE_KERNEL_OBJECT)) {
        return ERROR_FILE_NOT_FOUND;
    }
    DWORD mode = PIPE_READMODE_MESSAGE;
    if (!SetNamedPipeHandleState(client.get(), &mode, nullptr, nullptr)) return GetLastError();
    // The call only reads the request, although its type says otherwise.
    return RunInTime(client.get(), deadline.Left(), replySize, [&](OVERLAPPED* operation) {
        return TransactNamedPipe(client.get(), const_cast<void*>(request), requestSize, reply,
                                 replySize, nullptr, operation);
    });
}

DWORD WaitForClient(HANDLE instance, DWORD milliseconds) {
    DWORD ignored = 0;
    const DWORD error = RunInTime(instance, milliseconds, ignored, [&](OVERLAPPED* operation) {
        return ConnectNamedPipe(instance, operation);
    });
    return error == ERROR_PIPE_CONNECTED ? ERROR_SUCCESS : error;
}

DWORD ReceiveMessage(HANDLE instance, void* buffer, DWORD capacity, DWORD& size,
                     DWORD milliseconds) {
    return RunInTime(instance, milliseconds, size, [&](OVERLAPPED* operation) {
        return ReadFile(instance, buffer, capacity, nullptr, operation);
    });
}

DWORD SendMessageTo(HANDLE instance, const void* message, DWORD size, DWORD milliseconds) {
    DWORD ignored = 0;
    return RunInTime(instance, milliseconds, ignored, [&](OVERLAPPED* operation) {
        return WriteFile(instance, message, size, nullptr, operation);
    });
}
