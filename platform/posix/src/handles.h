// The process's handle table: every HANDLE and every opened HKEY is an entry of it.
#pragma once

#include <handleapi.h>
#include <sys/types.h>

#include <memory>
#include <optional>

#include "last_error.h"

namespace platform {

class Deadline;

// What a handle names. Objects are shared: each open handle holds one reference, and the last one
// to go destroys the object.
class KernelObject {
  public:
    KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;
    virtual ~KernelObject();

    // Waits until the object is signalled. Returns one of the WAIT_ codes; an object that cannot be
    // waited for gives WAIT_FAILED with ERROR_INVALID_HANDLE.
    virtual DWORD Wait(const Deadline& deadline);
    // The account that owns the object; none, with ERROR_NOT_SUPPORTED or another code as last
    // error, when it cannot be told.
    virtual std::optional<uid_t> Owner();
};

// An object whose handle was opened for certain rights.
class GrantedObject : public KernelObject {
  public:
    explicit GrantedObject(DWORD granted) : granted_(granted) {}
    bool Allows(DWORD rights) const { return (granted_ & rights) == rights; }

  private:
    const DWORD granted_;
};

// Puts the object into the table. The handle is never null and never INVALID_HANDLE_VALUE.
HANDLE OpenHandle(std::shared_ptr<KernelObject> object);

// The object behind a handle; null, with ERROR_INVALID_HANDLE as last error, for a closed or
// foreign value.
std::shared_ptr<KernelObject> ObjectOf(HANDLE handle);

// The same, for an object of one kind.
template <typename Kind>
std::shared_ptr<Kind> ObjectOf(HANDLE handle) {
    auto object = std::dynamic_pointer_cast<Kind>(ObjectOf(handle));
    if (!object) SetLastError(ERROR_INVALID_HANDLE);
    return object;
}

// The same, with all these rights; null, with ERROR_ACCESS_DENIED, for a handle that lacks one.
template <typename Kind>
std::shared_ptr<Kind> ObjectOf(HANDLE handle, DWORD rights) {
    auto object = ObjectOf<Kind>(handle);
    const bool isGranted = !object || object->Allows(rights);
    return isGranted ? object : Fail<std::shared_ptr<Kind>>(ERROR_ACCESS_DENIED);
}

// Removes the handle from the table; false, with ERROR_INVALID_HANDLE, when it is not in it.
bool ReleaseHandle(HANDLE handle);

}  // namespace platform
