// What mutexes and events have in common: a little state in memory, which for a named object is
// shared by all processes that have it open.
#pragma once

#include <minwinbase.h>
#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

#include "descriptor.h"
#include "futex.h"
#include "handles.h"

namespace platform {

enum class ObjectKind : std::uint32_t { kMutex = 1, kEvent = 2 };

// Other accounts may write this memory when the object is everyone's, so nothing in it is trusted
// further than that the object may misbehave.
struct ObjectState {
    ObjectKind kind;
    FutexWord word;                         // see mutex.cpp and event.cpp
    std::uint32_t manualReset;              // of an event
    std::uint32_t depth;                    // waits that a mutex's owner won after the first
    std::atomic<std::uint64_t> ownerBirth;  // tells a mutex's owner from a later thread of its id
};

// The state of one opened object. A named object is a file of the endpoint's run folder, and exists
// exactly while somebody holds a lock on that file - which the kernel takes from a killed process.
class ObjectMemory {
  public:
    using Initialize = std::function<void(ObjectState&)>;

    // Creates the object in this initial state or opens the existing one, and tells which. A null
    // name makes an object of this process. Null, with the last error set, on failure.
    static std::unique_ptr<ObjectMemory> Create(LPCWSTR name, const SECURITY_ATTRIBUTES* attributes,
                                                ObjectKind kind, const Initialize& initialize,
                                                bool& existed);
    // Opens an existing object; null with ERROR_FILE_NOT_FOUND when there is none.
    static std::unique_ptr<ObjectMemory> Open(LPCWSTR name, ObjectKind kind);

    ObjectMemory(const ObjectMemory&) = delete;
    ObjectMemory& operator=(const ObjectMemory&) = delete;
    // Gives the object up; the last one to do so removes it.
    ~ObjectMemory();

    ObjectState& State() const { return *state_; }

  private:
    struct Opening;
    enum class Outcome { kDone, kAgain, kFailed };

    ObjectMemory() = default;
    static std::unique_ptr<ObjectMemory> Attach(Opening& opening);
    Outcome TryAttach(Opening& opening);
    Outcome Recycle(mode_t mode) const;

    UniqueDescriptor file_;  // none for an object of this process
    std::string path_;
    ObjectState* state_ = nullptr;
};

// A handle's view of an object: the object and what the handle may do with it.
class NamedObject : public KernelObject {
  public:
    NamedObject(std::unique_ptr<ObjectMemory> memory, DWORD access);

    bool Allows(DWORD access) const { return (access_ & access) == access; }
    DWORD Wait(DWORD milliseconds) final;

  protected:
    ObjectState& State() const { return memory_->State(); }
    virtual DWORD WaitForState(DWORD milliseconds) = 0;

  private:
    std::unique_ptr<ObjectMemory> memory_;
    DWORD access_;
};

}  // namespace platform
