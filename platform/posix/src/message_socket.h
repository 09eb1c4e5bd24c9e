// One end of a connection that carries messages.
#pragma once

#include <minwindef.h>

#include <vector>

#include "descriptor.h"
#include "thread_identity.h"

namespace platform {

// Every call returns at once, with a Windows error code: ERROR_SUCCESS, or ERROR_IO_PENDING when it
// must wait until poll() reports the socket ready for input or output.
class MessageSocket {
  public:
    // Takes a connected socket of the kind SOCK_SEQPACKET that does not block.
    explicit MessageSocket(UniqueDescriptor socket) : socket_(std::move(socket)) {}

    MessageSocket(const MessageSocket&) = delete;
    MessageSocket& operator=(const MessageSocket&) = delete;
    ~MessageSocket() { DropMessage(); }

    int Descriptor() const { return socket_.get(); }

    // The process and the account that connected; false, with the last error set, on failure.
    bool ReadPeer(pid_t& process, Identity& account) const;

    // Sends a message whole. ERROR_NO_DATA when the other end is gone.
    DWORD TrySend(const void* message, DWORD size);

    // Takes the next message, or what the last read left of one. When it is larger than the buffer,
    // the rest stays, and with `wholeMessages` the result is ERROR_MORE_DATA. ERROR_BROKEN_PIPE
    // when the other end is gone and nothing is left.
    DWORD TryReceive(void* buffer, DWORD size, bool wholeMessages, DWORD& received);

    // True when TryReceive would find something.
    bool HasUnread();

  private:
    DWORD FetchMessage();
    void DropMessage();
    bool HasMessage() const { return !message_.empty(); }

    UniqueDescriptor socket_;
    std::vector<BYTE> message_;  // with its mark; empty when there is none
    std::size_t next_ = 0;       // the first byte that was not read yet
};

}  // namespace platform
