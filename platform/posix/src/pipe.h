// The two ends of a named pipe. A handle of an end is used by one thread at a time.
#pragma once

#include <memory>
#include <optional>

#include "deadline.h"
#include "file_object.h"
#include "message_socket.h"
#include "pipe_listener.h"

namespace platform {

// What a call asks of an end: a client, a message written, a message read, or the last two.
struct PipeOperation {
    bool accepts = false;
    bool writes = false;
    bool reads = false;
    const void* output = nullptr;
    DWORD outputSize = 0;
    void* input = nullptr;
    DWORD inputSize = 0;

    DWORD transferred = 0;
};

class PipeEnd : public FileObject, public std::enable_shared_from_this<PipeEnd> {
  public:
    // A handle that is not for overlapped operations runs them to their end.
    PipeEnd(bool isOverlapped, bool readsMessages)
        : isOverlapped_(isOverlapped), readsMessages_(readsMessages) {}
    ~PipeEnd() override;

    BOOL Read(void* buffer, DWORD size, DWORD& read, OVERLAPPED* overlapped) override;
    BOOL Write(const void* data, DWORD size, DWORD& written, OVERLAPPED* overlapped) override;
    // What was written stays readable whatever becomes of this end: there is nothing to wait for.
    BOOL Flush() override { return TRUE; }
    // Goes on with the overlapped operation, to its end or that of the time.
    DWORD Wait(const Deadline& deadline) override;

    void ReadMessages(bool whole) { readsMessages_ = whole; }
    // Whether a transaction may begin; false with the last error set.
    bool MayTransact();

    // Runs an operation to its end, or starts it when it comes with an OVERLAPPED.
    BOOL Perform(PipeOperation operation, DWORD& transferred, OVERLAPPED* overlapped);

    BOOL ResultOf(const OVERLAPPED& overlapped, DWORD& transferred, bool wait);
    // Null: whatever goes on.
    BOOL Cancel(const OVERLAPPED* overlapped);

  protected:
    // The connection; null with `error` set while there is none.
    virtual MessageSocket* Connection(DWORD& error) = 0;
    // Takes a client: ERROR_IO_PENDING until there is one.
    virtual DWORD TryAccept();
    virtual int ListeningDescriptor() const { return -1; }

  private:
    struct Pending {
        PipeOperation operation;
        OVERLAPPED& overlapped;
    };

    DWORD Step(PipeOperation& operation, int& descriptor, short& events);
    DWORD Run(PipeOperation& operation, const Deadline& deadline);
    BOOL Start(const PipeOperation& operation, OVERLAPPED& overlapped);
    void Complete(DWORD error);

    const bool isOverlapped_;
    bool readsMessages_;
    std::optional<Pending> pending_;
};

// A client's end.
class PipeClient final : public PipeEnd {
  public:
    PipeClient(UniqueDescriptor socket, bool isOverlapped)
        : PipeEnd(isOverlapped, false), socket_(std::move(socket)) {}

    // The account that serves the pipe.
    std::optional<uid_t> Owner() override;

  protected:
    MessageSocket* Connection(DWORD& error) override;

  private:
    MessageSocket socket_;
};

// An instance of the serving end.
class PipeInstance final : public PipeEnd {
  public:
    PipeInstance(std::shared_ptr<PipeListener> listener, bool isOverlapped, bool readsMessages)
        : PipeEnd(isOverlapped, readsMessages), listener_(std::move(listener)) {}
    ~PipeInstance() override { listener_->Leave(); }

    BOOL Connect(OVERLAPPED* overlapped);
    BOOL Disconnect();
    // Who the client is; false, with the last error set, while there is none.
    bool ReadClient(pid_t& process, Identity& account);

  protected:
    MessageSocket* Connection(DWORD& error) override;
    DWORD TryAccept() override;
    int ListeningDescriptor() const override { return listener_->Descriptor(); }

  private:
    const std::shared_ptr<PipeListener> listener_;
    bool isListening_ = true;
    std::optional<MessageSocket> client_;
};

// Opens a client's end of the pipe for CreateFileW; INVALID_HANDLE_VALUE on failure.
HANDLE OpenPipe(const std::string& name, DWORD access, DWORD flags);

}  // namespace platform
