// Where the pipes of the machine are: sockets in the folder run/pipes, by the pipe's upper-case
// name.
//
//   NAME        the socket, while an instance is free for a client
//   NAME\busy   the socket while none is; no pipe's name holds a backslash
//   NAME\lock   locked by the process that serves the pipe, while it lives
#pragma once

#include <minwindef.h>
#include <sys/types.h>

#include <memory>
#include <mutex>
#include <string>

#include "deadline.h"
#include "descriptor.h"

namespace platform {

// The pipe that a path of the form "\\.\pipe\NAME" names; empty for any other path.
std::string PipeNameOf(LPCWSTR path);

// Connects to a free instance. Not a descriptor, with the last error set, on failure:
// ERROR_FILE_NOT_FOUND when nobody serves the pipe, ERROR_PIPE_BUSY when no instance is free.
UniqueDescriptor ConnectToPipe(const std::string& name);

// Waits until an instance is free. False with ERROR_FILE_NOT_FOUND or ERROR_SEM_TIMEOUT.
bool WaitForPipe(const std::string& name, const Deadline& deadline);

// The serving side of one pipe in this process, shared by its instances.
class PipeListener {
  public:
    enum class Instances { kFirstOnly, kAny };

    // Takes part in serving a pipe. Null, with the last error set, when that is not possible.
    static std::shared_ptr<PipeListener> Join(const std::string& name, mode_t mode, DWORD limit,
                                              Instances instances);

    PipeListener(std::string name, UniqueDescriptor lock, UniqueDescriptor socket);
    PipeListener(const PipeListener&) = delete;
    PipeListener& operator=(const PipeListener&) = delete;
    ~PipeListener();

    int Descriptor() const { return socket_.get(); }

    // One instance more, or less, is free for a client.
    void Offer();
    void Withdraw();
    // Takes a client that has connected, for an instance that is offered and then no longer is. Not
    // a descriptor, with errno set, when there is none.
    UniqueDescriptor Accept();

    // Gives an instance's place back.
    void Leave();

  private:
    void Publish();

    const std::string name_;
    const UniqueDescriptor lock_;
    const UniqueDescriptor socket_;
    std::mutex mutex_;
    DWORD instances_ = 0;
    DWORD free_ = 0;
    bool isPublished_ = false;
};

}  // namespace platform
