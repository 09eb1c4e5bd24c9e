// Opened processes.
#pragma once

#include <string>

#include "handles.h"
#include "process_info.h"

namespace platform {

class Process final : public GrantedObject {
  public:
    // Null, with the last error set, when there is no such process or the caller may not look at
    // it.
    static std::shared_ptr<Process> Open(pid_t id, DWORD access);

    Process(pid_t id, DWORD access, UniqueDescriptor descriptor);

    pid_t Id() const { return id_; }
    const ProcessFolder& Folder() const { return folder_; }

    DWORD Wait(const Deadline& deadline) override;

  private:
    const pid_t id_;
    const UniqueDescriptor descriptor_;  // readable when the process has ended
    const ProcessFolder folder_;
};

// The process that a handle names - GetCurrentProcess() included - opened with these rights. Null
// with ERROR_INVALID_HANDLE or ERROR_ACCESS_DENIED.
std::shared_ptr<Process> ProcessOf(HANDLE handle, DWORD rights);

}  // namespace platform
