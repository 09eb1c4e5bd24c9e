// What every handle can do that bytes are read from or written to: files, standard streams, pipes.
#pragma once

#include <fileapi.h>

#include "handles.h"

namespace platform {

// Each call returns TRUE, or FALSE with the last error set; what a kind of object does not
// offer fails with ERROR_INVALID_HANDLE.
class FileObject : public KernelObject {
  public:
    // With an OVERLAPPED an overlapped operation, of which most objects know none
    // (ERROR_NOT_SUPPORTED).
    virtual BOOL Read(void* buffer, DWORD size, DWORD& read, OVERLAPPED* overlapped) = 0;
    virtual BOOL Write(const void* data, DWORD size, DWORD& written, OVERLAPPED* overlapped) = 0;
    virtual BOOL Flush();
};

// A descriptor of this process that something owns: a regular file, a terminal, a device.
class DescriptorObject : public FileObject {
  public:
    explicit DescriptorObject(int descriptor) : descriptor_(descriptor) {}

    int Descriptor() const { return descriptor_; }
    BOOL Read(void* buffer, DWORD size, DWORD& read, OVERLAPPED* overlapped) override;
    BOOL Write(const void* data, DWORD size, DWORD& written, OVERLAPPED* overlapped) override;
    BOOL Flush() override;
    std::optional<uid_t> Owner() override;

  protected:
    int descriptor_;
};

}  // namespace platform
