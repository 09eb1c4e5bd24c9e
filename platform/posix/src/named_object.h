// What mutexes and events have in common: a name that every process sees, and a little state.
//
// A named object is a file of the folder "run" below the machine's folder. It exists exactly while
// some process holds a lock on that file, which the kernel takes from a killed one. The file is
// read and written, never mapped: another account that may write it can disturb the object's users,
// but not end them.
#pragma once

#include <minwinbase.h>
#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <string>

#include "deadline.h"
#include "descriptor.h"
#include "handles.h"

namespace platform {

enum class ObjectKind : std::uint32_t { kMutex = 1, kEvent = 2 };

// The state of an object: what its file holds.
struct ObjectState {
    ObjectKind kind = ObjectKind::kMutex;
    std::uint32_t isManual = 0;  // an event without automatic reset
    std::uint32_t isSet = 0;     // an event is set; a mutex has an owner, who may have died
    std::uint32_t settings = 0;  // how often an event was set
};

// The file of an object that this process has open.
class ObjectFile {
  public:
    ObjectFile() = default;
    ObjectFile(std::string path, UniqueDescriptor file)
        : path_(std::move(path)), file_(std::move(file)) {}
    ObjectFile(ObjectFile&&) = default;
    ObjectFile& operator=(ObjectFile&&) = delete;
    // Gives the object up if it was held; the last process to do so removes the file.
    ~ObjectFile();

    // Lets the object exist. False, with the last error set, on failure.
    bool Hold();
    bool IsHeldByAnother() const;

    // False for an object without a name.
    explicit operator bool() const { return static_cast<bool>(file_); }
    int Descriptor() const { return file_.get(); }
    // Whether the path still names this file.
    bool IsNamed() const;
    bool IsSameAs(const ObjectFile& other) const;

    // Each fails with the last error set: ERROR_FILE_INVALID when the file was cut by somebody.
    bool Read(ObjectState& state) const;
    bool Write(const ObjectState& state) const;

  private:
    std::string path_;
    UniqueDescriptor file_;
    bool isHeld_ = false;
};

// An object as this process has it: all its handles share it.
class SyncObject {
  public:
    SyncObject(ObjectFile file, const ObjectState& state) : file_(std::move(file)), state_(state) {}
    SyncObject(const SyncObject&) = delete;
    SyncObject& operator=(const SyncObject&) = delete;
    virtual ~SyncObject();

    virtual DWORD Wait(const Deadline& deadline) = 0;
    ObjectKind Kind() const { return state_.kind; }
    const ObjectFile& File() const { return file_; }

  protected:
    // The state, in the file when the object has a name. False, with the last error set, on
    // failure.
    bool Load(ObjectState& state) const;
    bool Store(const ObjectState& state);

    std::mutex mutex_;                 // among the threads of this process
    std::condition_variable changed_;  // tells them of changes by each other

  private:
    ObjectFile file_;
    ObjectState state_;  // of an object without a name
};

template <typename Kind>
std::shared_ptr<SyncObject> MakeSyncObject(ObjectFile file, const ObjectState& state) {
    return std::make_shared<Kind>(std::move(file), state);
}

// A handle of an object, and what it may do with it.
class ObjectHandle final : public GrantedObject {
  public:
    ObjectHandle(std::shared_ptr<SyncObject> object, DWORD access);

    const std::shared_ptr<SyncObject>& Object() const { return object_; }
    DWORD Wait(const Deadline& deadline) override;
    std::optional<uid_t> Owner() override;

  private:
    const std::shared_ptr<SyncObject> object_;
};

// Keeps other processes from the state of a named object, and from opening or leaving it.
class Gate {
  public:
    explicit Gate(const ObjectFile& file);
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    ~Gate();
    // False, with the last error set, when the lock cannot be had.
    explicit operator bool() const { return isHeld_; }

  private:
    const int file_;
    bool isHeld_ = true;
};

// The byte of an object's file that a mutex's owner has locked.
inline constexpr off_t kOwnerByte = 2;

struct ObjectRequest {
    LPCWSTR name;
    ObjectState state;  // of a new object
    std::shared_ptr<SyncObject> (*make)(ObjectFile file, const ObjectState& state);
    bool isOwned;  // a new object is waited for before anybody else sees it
};

// Creates the object, or opens the existing one with ERROR_ALREADY_EXISTS as last error. A null
// name makes an object of this process. Null, with the last error set, on failure.
HANDLE CreateObject(const ObjectRequest& request, const SECURITY_ATTRIBUTES* attributes,
                    DWORD access);
// Opens an existing object; null with ERROR_FILE_NOT_FOUND when there is none.
HANDLE OpenObject(const ObjectRequest& request, DWORD access);

// The object behind a handle; null, with ERROR_INVALID_HANDLE, when the handle is not of this kind,
// and with ERROR_ACCESS_DENIED when it lacks the right.
template <typename Kind>
std::shared_ptr<Kind> SyncObjectOf(HANDLE handle, DWORD right) {
    const auto opened = ObjectOf<ObjectHandle>(handle);
    auto object = opened ? std::dynamic_pointer_cast<Kind>(opened->Object()) : nullptr;
    if (!object) return Fail<std::shared_ptr<Kind>>(ERROR_INVALID_HANDLE);
    return opened->Allows(right) ? object : Fail<std::shared_ptr<Kind>>(ERROR_ACCESS_DENIED);
}

}  // namespace platform
