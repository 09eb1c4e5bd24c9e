// Where the pipes of the machine are: sockets in the folder run/pipes, by the pipe's upper-case
// name. One socket takes the clients of all instances. It listens as long as its server runs, so
// the name is never free meanwhile; clients beyond the free instances wait in its queue.
#pragma once

#include <minwindef.h>
#include <sys/types.h>

#include <memory>
#include <mutex>
#include <string>

#include "descriptor.h"

namespace platform {

// The pipe that a path of the form "\\.\pipe\NAME" names; empty for any other path.
std::string PipeNameOf(LPCWSTR path);

// Connects to the pipe's server, or to its queue. Not a descriptor, with the last error set, on
// failure: ERROR_FILE_NOT_FOUND when nobody serves the pipe, ERROR_PIPE_BUSY when the queue is
// full, ERROR_ACCESS_DENIED when the folder of the pipes is not the machine's.
UniqueDescriptor ConnectToPipe(const std::string& name);

// Whether somebody serves the pipe; false with ERROR_FILE_NOT_FOUND or what went wrong.
bool IsPipeServed(const std::string& name);

// The serving side of one pipe in this process, shared by its instances.
class PipeListener {
  public:
    enum class Instances { kFirstOnly, kAny };

    // Takes part in serving a pipe. Null, with the last error set, when that is not possible:
    // ERROR_ACCESS_DENIED when another process serves it or its name cannot be had.
    static std::shared_ptr<PipeListener> Join(const std::string& name, mode_t mode, DWORD limit,
                                              Instances instances);

    PipeListener(std::string name, UniqueDescriptor socket)
        : name_(std::move(name)), socket_(std::move(socket)) {}
    PipeListener(const PipeListener&) = delete;
    PipeListener& operator=(const PipeListener&) = delete;
    ~PipeListener();

    int Descriptor() const { return socket_.get(); }
    // Takes the client that has waited longest; those that have hung up are dropped. Not a
    // descriptor, with errno set, when there is none.
    UniqueDescriptor Accept() const;
    // One instance less.
    void Leave();

  private:
    const std::string name_;
    UniqueDescriptor socket_;
    DWORD instances_ = 0;  // guarded by the mutex of all listeners
};

}  // namespace platform
