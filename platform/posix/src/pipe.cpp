#include "pipe.h"

#include <fileapi.h>
#include <poll.h>
#include <winbase.h>

#include <cerrno>

#include "event.h"
#include "last_error.h"

namespace platform {

PipeEnd::~PipeEnd() {
    if (pending_) Complete(ERROR_OPERATION_ABORTED);
}

BOOL PipeEnd::Read(void* buffer, DWORD size, DWORD& read, OVERLAPPED* overlapped) {
    return Perform({.reads = true, .input = buffer, .inputSize = size}, read, overlapped);
}

BOOL PipeEnd::Write(const void* data, DWORD size, DWORD& written, OVERLAPPED* overlapped) {
    return Perform({.writes = true, .output = data, .outputSize = size}, written, overlapped);
}

bool PipeEnd::MayTransact() {
    DWORD error = ERROR_SUCCESS;
    MessageSocket* const socket = Connection(error);
    if (socket == nullptr) return Fail(error);
    if (!readsMessages_) return Fail(ERROR_BAD_PIPE);
    return !socket->HasUnread() || Fail(ERROR_PIPE_BUSY);
}

BOOL PipeEnd::Perform(PipeOperation operation, DWORD& transferred, OVERLAPPED* overlapped) {
    if (isOverlapped_) {
        return overlapped != nullptr ? Start(operation, *overlapped)
                                     : Fail(ERROR_INVALID_PARAMETER);
    }
    if (overlapped != nullptr) return Fail(ERROR_NOT_SUPPORTED);
    const DWORD error = Run(operation, Deadline(INFINITE));
    transferred = operation.transferred;
    return error == ERROR_SUCCESS || Fail(error);
}

// One try to get further. While it cannot, ERROR_IO_PENDING and what to poll for.
DWORD PipeEnd::Step(PipeOperation& operation, int& descriptor, short& events) {
    if (operation.accepts) {
        descriptor = ListeningDescriptor();
        events = POLLIN;
        return TryAccept();
    }
    DWORD error = ERROR_SUCCESS;
    MessageSocket* const socket = Connection(error);
    if (socket == nullptr) return error;
    descriptor = socket->Descriptor();
    if (operation.writes) {
        events = POLLOUT;
        error = socket->TrySend(operation.output, operation.outputSize);
        if (error != ERROR_SUCCESS) return error;
        operation.writes = false;
        operation.transferred = operation.outputSize;
    }
    if (!operation.reads) return ERROR_SUCCESS;
    events = POLLIN;
    operation.transferred = 0;
    return socket->TryReceive(operation.input, operation.inputSize, readsMessages_,
                              operation.transferred);
}

// Runs an operation; ERROR_IO_PENDING when the time is up before its end.
DWORD PipeEnd::Run(PipeOperation& operation, const Deadline& deadline) {
    for (;;) {
        pollfd polled{-1, 0, 0};
        const DWORD error = Step(operation, polled.fd, polled.events);
        if (error != ERROR_IO_PENDING || deadline.HasPassed()) return error;
        if (poll(&polled, 1, deadline.PollTimeout()) < 0 && errno != EINTR) {
            return ErrorOfErrno(errno);
        }
    }
}

BOOL PipeEnd::Start(const PipeOperation& operation, OVERLAPPED& overlapped) {
    if (pending_) return Fail(ERROR_NOT_SUPPORTED);
    if (overlapped.hEvent != nullptr && !ResetEvent(overlapped.hEvent)) return FALSE;
    overlapped.Internal = ERROR_IO_PENDING;
    pending_.emplace(Pending{operation, overlapped});
    if (overlapped.hEvent != nullptr) SetSourceOfEvent(overlapped.hEvent, weak_from_this());
    Wait(Deadline(0));
    const auto error = static_cast<DWORD>(overlapped.Internal);
    return error == ERROR_SUCCESS || Fail(error);
}

void PipeEnd::Complete(DWORD error) {
    OVERLAPPED& overlapped = pending_->overlapped;
    const HANDLE event = overlapped.hEvent;
    overlapped.InternalHigh = pending_->operation.transferred;
    overlapped.Internal = error;
    pending_.reset();
    if (event != nullptr) SetEvent(event);
}

DWORD PipeEnd::Wait(const Deadline& deadline) {
    if (!pending_) return WAIT_OBJECT_0;
    const DWORD error = Run(pending_->operation, deadline);
    if (error == ERROR_IO_PENDING) return WAIT_TIMEOUT;
    Complete(error);
    return WAIT_OBJECT_0;
}

BOOL PipeEnd::ResultOf(const OVERLAPPED& overlapped, DWORD& transferred, bool wait) {
    Wait(Deadline(wait ? INFINITE : 0));
    if (overlapped.Internal == ERROR_IO_PENDING) return Fail(ERROR_IO_INCOMPLETE);
    transferred = static_cast<DWORD>(overlapped.InternalHigh);
    const auto error = static_cast<DWORD>(overlapped.Internal);
    return error == ERROR_SUCCESS || Fail(error);
}

BOOL PipeEnd::Cancel(const OVERLAPPED* overlapped) {
    const bool isIt = pending_ && (overlapped == nullptr || overlapped == &pending_->overlapped);
    if (!isIt) return Fail(ERROR_NOT_FOUND);
    Complete(ERROR_OPERATION_ABORTED);
    return TRUE;
}

DWORD PipeEnd::TryAccept() {
    return ERROR_INVALID_FUNCTION;
}

MessageSocket* PipeClient::Connection(DWORD& /*error*/) {
    return &socket_;
}

std::optional<uid_t> PipeClient::Owner() {
    pid_t process = 0;
    Identity account;
    return socket_.ReadPeer(process, account) ? std::optional(account.user) : std::nullopt;
}

BOOL PipeInstance::Connect(OVERLAPPED* overlapped) {
    if (client_) return Fail(ERROR_PIPE_CONNECTED);
    isListening_ = true;
    // A client that is there already is told by an error of its own.
    if (TryAccept() == ERROR_SUCCESS) return Fail(ERROR_PIPE_CONNECTED);
    DWORD transferred = 0;
    return Perform({.accepts = true}, transferred, overlapped);
}

BOOL PipeInstance::Disconnect() {
    if (!client_) return Fail(isListening_ ? ERROR_PIPE_LISTENING : ERROR_PIPE_NOT_CONNECTED);
    client_.reset();
    return TRUE;
}

bool PipeInstance::ReadClient(pid_t& process, Identity& account) {
    DWORD error = ERROR_SUCCESS;
    const MessageSocket* const client = Connection(error);
    return client != nullptr ? client->ReadPeer(process, account) : Fail(error);
}

MessageSocket* PipeInstance::Connection(DWORD& error) {
    if (client_) return &*client_;
    error = isListening_ ? ERROR_PIPE_LISTENING : ERROR_PIPE_NOT_CONNECTED;
    return nullptr;
}

DWORD PipeInstance::TryAccept() {
    UniqueDescriptor client = listener_->Accept();
    if (!client) {
        const bool isNone = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
        return isNone ? ERROR_IO_PENDING : ErrorOfErrno(errno);
    }
    isListening_ = false;
    client_.emplace(std::move(client));
    return ERROR_SUCCESS;
}

HANDLE OpenPipe(const std::string& name, DWORD access, DWORD flags) {
    constexpr DWORD kRights = READ_CONTROL | SYNCHRONIZE | FILE_READ_DATA | FILE_WRITE_DATA |
                              FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES;
    // A server learns who its client is but cannot act as it: what the client allows needs no
    // keeping.
    constexpr DWORD kFlags = FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL | SECURITY_SQOS_PRESENT |
                             SECURITY_IDENTIFICATION;
    const bool reads = (access & (GENERIC_READ | FILE_READ_DATA)) != 0;
    const bool writes = (access & (GENERIC_WRITE | FILE_WRITE_DATA)) != 0;
    if (!reads || !writes || (access & ~(kRights | GENERIC_READ | GENERIC_WRITE)) != 0 ||
        (flags & ~kFlags) != 0) {
        return FailToOpen(ERROR_NOT_SUPPORTED);
    }
    UniqueDescriptor socket = ConnectToPipe(name);
    if (!socket) return INVALID_HANDLE_VALUE;
    const bool isOverlapped = (flags & FILE_FLAG_OVERLAPPED) != 0;
    return OpenHandle(std::make_shared<PipeClient>(std::move(socket), isOverlapped));
}

}  // namespace platform
