#include "pipe.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <winbase.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <exception>

#include "last_error.h"

namespace platform {

PipeEnd::~PipeEnd() = default;

BOOL PipeEnd::Read(void* buffer, DWORD size, DWORD& read) {
    return Perform({.reads = true, .input = buffer, .inputSize = size}, read, nullptr);
}

BOOL PipeEnd::Write(const void* data, DWORD size, DWORD& written) {
    return Perform({.writes = true, .output = data, .outputSize = size}, written, nullptr);
}

BOOL PipeEnd::StartRead(void* buffer, DWORD size, DWORD& read, OVERLAPPED& overlapped) {
    return Perform({.reads = true, .input = buffer, .inputSize = size}, read, &overlapped);
}

BOOL PipeEnd::StartWrite(const void* data, DWORD size, DWORD& written, OVERLAPPED& overlapped) {
    return Perform({.writes = true, .output = data, .outputSize = size}, written, &overlapped);
}

bool PipeEnd::MayTransact() {
    DWORD error = ERROR_SUCCESS;
    MessageSocket* const socket = Connection(error);
    if (socket == nullptr) return Fail(error);
    if (!readsMessages_) return Fail(ERROR_BAD_PIPE);
    return !socket->HasUnread() || Fail(ERROR_PIPE_BUSY);
}

BOOL PipeEnd::Perform(PipeOperation operation, DWORD& transferred, OVERLAPPED* overlapped) {
    if (isOverlapped_ && overlapped == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (isOverlapped_) return Start(operation, *overlapped);
    const DWORD error = Run(operation, Deadline(INFINITE));
    transferred = operation.transferred;
    if (overlapped != nullptr) Complete(*overlapped, error, transferred);
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

DWORD PipeEnd::Run(PipeOperation& operation, const Deadline& deadline, int cancel) {
    for (;;) {
        std::array<pollfd, 2> polled{{{-1, 0, 0}, {cancel, POLLIN, 0}}};
        const DWORD error = Step(operation, polled[0].fd, polled[0].events);
        if (error != ERROR_IO_PENDING) return error;
        if (deadline.HasPassed()) return ERROR_SEM_TIMEOUT;
        if (poll(polled.data(), polled.size(), deadline.PollTimeout()) < 0 && errno != EINTR) {
            return ErrorOfErrno(errno);
        }
        if (polled[1].revents != 0) return ERROR_OPERATION_ABORTED;
    }
}

BOOL PipeEnd::Start(PipeOperation operation, OVERLAPPED& overlapped) {
    {
        const std::lock_guard lock(mutex_);
        if (isRunning_) return Fail(ERROR_NOT_SUPPORTED);
    }
    StopOverlapped();  // the thread of the last one has ended: it is only taken down
    if (overlapped.hEvent != nullptr && !ResetEvent(overlapped.hEvent)) return FALSE;
    UniqueDescriptor cancel(eventfd(0, EFD_CLOEXEC));
    if (!cancel) return FailWithErrno(errno);

    int descriptor = -1;
    short events = 0;
    const DWORD error = Step(operation, descriptor, events);
    if (error != ERROR_IO_PENDING) {
        Complete(overlapped, error, operation.transferred);
        return error == ERROR_SUCCESS || Fail(error);
    }
    const std::lock_guard lock(mutex_);
    overlapped.Internal = ERROR_IO_PENDING;
    isRunning_ = true;
    pending_.emplace(Pending{operation, &overlapped, std::move(cancel), {}});
    try {
        pending_->thread = std::thread([this] {
            const DWORD result =
                Run(pending_->operation, Deadline(INFINITE), pending_->cancel.get());
            Complete(*pending_->overlapped, result, pending_->operation.transferred);
        });
    } catch (const std::exception&) {  // no thread is to be had
        pending_.reset();
        isRunning_ = false;
        overlapped.Internal = ERROR_NO_SYSTEM_RESOURCES;
        return Fail(ERROR_NO_SYSTEM_RESOURCES);
    }
    return Fail(ERROR_IO_PENDING);
}

void PipeEnd::Complete(OVERLAPPED& overlapped, DWORD error, DWORD transferred) {
    const HANDLE event = overlapped.hEvent;
    {
        const std::lock_guard lock(mutex_);
        overlapped.InternalHigh = transferred;
        overlapped.Internal = error;
        isRunning_ = false;
        ended_.notify_all();
    }
    // The caller may take the OVERLAPPED away from now on.
    if (event != nullptr) SetEvent(event);
}

void PipeEnd::StopOverlapped() {
    if (!pending_) return;
    eventfd_write(pending_->cancel.get(), 1);
    pending_->thread.join();
    pending_.reset();
}

DWORD PipeEnd::Wait(DWORD milliseconds) {
    std::unique_lock lock(mutex_);
    const auto hasEnded = [this] { return !isRunning_; };
    if (milliseconds == INFINITE) {
        ended_.wait(lock, hasEnded);
        return WAIT_OBJECT_0;
    }
    const bool isInTime = ended_.wait_for(lock, std::chrono::milliseconds(milliseconds), hasEnded);
    return isInTime ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

BOOL PipeEnd::ResultOf(OVERLAPPED& overlapped, DWORD& transferred, bool wait) {
    if (wait) Wait(INFINITE);
    const std::lock_guard lock(mutex_);
    if (overlapped.Internal == ERROR_IO_PENDING) return Fail(ERROR_IO_INCOMPLETE);
    transferred = static_cast<DWORD>(overlapped.InternalHigh);
    const auto error = static_cast<DWORD>(overlapped.Internal);
    return error == ERROR_SUCCESS || Fail(error);
}

BOOL PipeEnd::Cancel(const OVERLAPPED* overlapped) {
    const std::lock_guard lock(mutex_);
    const bool isIt =
        isRunning_ && pending_ && (overlapped == nullptr || overlapped == pending_->overlapped);
    if (!isIt) return Fail(ERROR_NOT_FOUND);
    return eventfd_write(pending_->cancel.get(), 1) == 0 || FailWithErrno(errno);
}

DWORD PipeEnd::TryAccept() {
    return ERROR_INVALID_FUNCTION;
}

MessageSocket* PipeClient::Connection(DWORD& /*error*/) {
    return &socket_;
}

PipeInstance::PipeInstance(std::shared_ptr<PipeListener> listener, bool isOverlapped,
                           bool readsMessages)
    : PipeEnd(isOverlapped, readsMessages), listener_(std::move(listener)) {
    listener_->Offer();
}

PipeInstance::~PipeInstance() {
    StopOverlapped();
    if (isOffered_) listener_->Withdraw();
    listener_->Leave();
}

BOOL PipeInstance::Connect(OVERLAPPED* overlapped) {
    if (client_) return Fail(ERROR_PIPE_CONNECTED);
    if (!isOffered_) listener_->Offer();
    isOffered_ = true;
    // A client that is there already is told by an error of its own.
    if (TryAccept() == ERROR_SUCCESS) return Fail(ERROR_PIPE_CONNECTED);
    DWORD transferred = 0;
    return Perform({.accepts = true}, transferred, overlapped);
}

BOOL PipeInstance::Disconnect() {
    if (!client_) return Fail(isOffered_ ? ERROR_PIPE_LISTENING : ERROR_PIPE_NOT_CONNECTED);
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
    error = isOffered_ ? ERROR_PIPE_LISTENING : ERROR_PIPE_NOT_CONNECTED;
    return nullptr;
}

DWORD PipeInstance::TryAccept() {
    UniqueDescriptor client = listener_->Accept();
    if (!client) {
        const bool isNone = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
        return isNone ? ERROR_IO_PENDING : ErrorOfErrno(errno);
    }
    isOffered_ = false;
    client_.emplace(std::move(client));
    return ERROR_SUCCESS;
}

HANDLE OpenPipe(const std::string& name, DWORD access, DWORD flags) {
    constexpr DWORD kAccess = GENERIC_READ | GENERIC_WRITE;
    // A server learns who its client is but cannot act as it: what the client allows needs no
    // keeping.
    constexpr DWORD kFlags = FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL | SECURITY_SQOS_PRESENT |
                             SECURITY_IDENTIFICATION;
    if (access != kAccess || (flags & ~kFlags) != 0) {
        Fail(ERROR_NOT_SUPPORTED);
        return INVALID_HANDLE_VALUE;
    }
    UniqueDescriptor socket = ConnectToPipe(name);
    if (!socket) return INVALID_HANDLE_VALUE;
    const bool isOverlapped = (flags & FILE_FLAG_OVERLAPPED) != 0;
    return OpenHandle(std::make_shared<PipeClient>(std::move(socket), isOverlapped));
}

}  // namespace platform
