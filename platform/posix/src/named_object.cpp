#include "named_object.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <vector>

#include "endpoint.h"
#include "file_lock.h"
#include "last_error.h"
#include "paths.h"
#include "security.h"
#include "text.h"
#include "thread_identity.h"

namespace platform {
namespace {

// Bytes of an object's file that locks are held on, beside the mutex owner's: each process that has
// the object open has a shared lock on the first; the gate is an exclusive one on the second.
constexpr off_t kExistence = 0;
constexpr off_t kGate = 1;

// A file name for an object name: its letters and digits, and every other byte as %XX. Names of the
// session ("Local\") are the plain names. Empty, with the last error set, for an impossible name.
std::string FileNameOf(std::u16string_view name) {
    constexpr std::u16string_view kLocal = u"Local\\";
    constexpr std::u16string_view kGlobal = u"Global\\";
    if (name.starts_with(kLocal)) name.remove_prefix(kLocal.size());
    const std::size_t prefix = name.starts_with(kGlobal) ? kGlobal.size() : 0;
    if (name.find(u'\\', prefix) != std::u16string_view::npos) {
        return Fail<std::string>(ERROR_PATH_NOT_FOUND);
    }
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string file;
    for (const char c : BytesOf(name)) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= 'a' && byte <= 'z') || byte == '_' || byte == '-';
        if (plain) {
            file += c;
        } else {
            file += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return file;
}

// The object's file; empty, with the last error set, on failure.
std::string PathOfObject(LPCWSTR name, bool create) {
    const std::string file = FileNameOf(name);
    if (file.empty()) return {};
    if (!create && access((EndpointFolder() + "/run").c_str(), F_OK) != 0) {
        return Fail<std::string>(ERROR_FILE_NOT_FOUND);
    }
    const ActAsProcess asProcess;  // the folder is the machine's, also when a user's object is made
    const std::string folder = EndpointSubfolder("run", FolderUse::kEveryoneWrites);
    return folder.empty() ? std::string() : folder + "/" + file;
}

// Opens the file, or makes it when asked to. Not with O_CREAT alone: systems forbid that for
// another account's file in a folder that everyone writes.
UniqueDescriptor OpenObjectFile(const std::string& path, bool create) {
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    for (;;) {
        UniqueDescriptor file(open(path.c_str(), kFlags));
        if (file || errno != ENOENT || !create) return file;
        file = UniqueDescriptor(open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0600));
        if (file || errno != EEXIST) return file;
    }
}

enum class Outcome { kFailed, kAgain, kDone };

// Makes the file ready for a new object. It may be left over from a killed process, perhaps of
// another account, which must not get at a new private object by it.
Outcome Recycle(const ObjectFile& file, const std::string& path, mode_t mode,
                const ObjectState& state) {
    struct stat info {};
    if (fstat(file.Descriptor(), &info) != 0) return FailWithErrno<Outcome>(errno);
    if (info.st_uid != ThreadAccount() || info.st_nlink != 1) {
        if (unlink(path.c_str()) == 0) return Outcome::kAgain;
        if (mode != (info.st_mode & 0777) || info.st_nlink != 1)
            return FailWithErrno<Outcome>(EACCES);
    } else if (fchmod(file.Descriptor(), mode) != 0) {
        return FailWithErrno<Outcome>(errno);
    }
    if (ftruncate(file.Descriptor(), 0) != 0) return FailWithErrno<Outcome>(errno);
    if (file.Write(state)) return Outcome::kDone;
    unlink(path.c_str());
    return Outcome::kFailed;
}

// The named objects that this process has open.
class OpenObjects {
  public:
    // Held while an object is opened, so that there is one for each file.
    std::mutex mutex;

    std::shared_ptr<SyncObject> Find(const ObjectFile& file) {
        std::erase_if(objects_, [](const auto& object) { return object.expired(); });
        for (const auto& known : objects_) {
            auto object = known.lock();
            if (object && object->File().IsSameAs(file)) return object;
        }
        return nullptr;
    }
    void Add(const std::shared_ptr<SyncObject>& object) { objects_.push_back(object); }

  private:
    std::vector<std::weak_ptr<SyncObject>> objects_;
};

// Never destroyed: handles are opened by destructors that may run after this library's own.
OpenObjects& AllOpenObjects() {
    static auto* const objects = new OpenObjects;
    return *objects;
}

// How an object is opened: what is asked for, and the result.
struct Opening {
    const ObjectRequest& request;
    std::string path;
    std::optional<mode_t> mode;  // of a new object; none: only an existing one is wanted
    bool existed = false;
    std::shared_ptr<SyncObject> object = nullptr;
};

Outcome TryOpen(Opening& opening) {
    auto& all = AllOpenObjects();
    const std::lock_guard lock(all.mutex);
    // 1. The file, which nobody else opens or leaves now.
    UniqueDescriptor descriptor = OpenObjectFile(opening.path, opening.mode.has_value());
    struct stat info {};
    if (!descriptor || fstat(descriptor.get(), &info) != 0) return FailWithErrno<Outcome>(errno);
    if (!S_ISREG(info.st_mode)) return FailWithErrno<Outcome>(EACCES);
    ObjectFile file(opening.path, std::move(descriptor));
    const Gate gate(file);
    if (!gate) return Outcome::kFailed;
    if (!file.IsNamed()) return Outcome::kAgain;
    // 2. Whether it is an object, or was left by a killed process.
    opening.existed = file.IsHeldByAnother();
    if (!opening.existed) {
        if (!opening.mode) return FailWithErrno<Outcome>(ENOENT);
        const Outcome outcome = Recycle(file, opening.path, *opening.mode, opening.request.state);
        if (outcome != Outcome::kDone) return outcome;
    }
    ObjectState state;
    if (!file.Read(state)) return Outcome::kFailed;
    // 3. The object, which other handles of this process may have.
    if (opening.existed) opening.object = all.Find(file);
    const ObjectKind kind = opening.object ? opening.object->Kind() : state.kind;
    if (kind != opening.request.state.kind) return Fail<Outcome>(ERROR_INVALID_HANDLE);
    if (opening.object) return Outcome::kDone;
    if (!file.Hold()) return Outcome::kFailed;
    opening.object = opening.request.make(std::move(file), state);
    all.Add(opening.object);
    const bool isOwned = !opening.existed && opening.request.isOwned;
    if (isOwned && opening.object->Wait(Deadline(0)) != WAIT_OBJECT_0) return Outcome::kFailed;
    return Outcome::kDone;
}

HANDLE Open(Opening opening, DWORD access) {
    if (opening.path.empty()) return nullptr;
    Outcome outcome = Outcome::kAgain;
    while (outcome == Outcome::kAgain) outcome = TryOpen(opening);
    if (outcome == Outcome::kFailed) return nullptr;
    SetLastError(opening.existed && opening.mode ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
    return OpenHandle(std::make_shared<ObjectHandle>(std::move(opening.object), access));
}

}  // namespace

ObjectFile::~ObjectFile() {
    if (!file_ || !isHeld_) return;
    const Gate gate(*this);
    UnlockByte(file_.get(), kExistence);
    // In a folder that everyone writes only its owner may remove the file; one that stays behind
    // is no object.
    if (!IsHeldByAnother() && IsNamed()) unlink(path_.c_str());
}

bool ObjectFile::Hold() {
    isHeld_ = TryLockByte(file_.get(), LockMode::kShared, kExistence);
    return isHeld_ || FailWithErrno(errno);
}

bool ObjectFile::IsHeldByAnother() const {
    return IsByteLockedByAnother(file_.get(), kExistence);
}

bool ObjectFile::IsNamed() const {
    return IsFileAt(path_, file_.get());
}

bool ObjectFile::IsSameAs(const ObjectFile& other) const {
    struct stat own {};
    struct stat others {};
    return fstat(file_.get(), &own) == 0 && fstat(other.file_.get(), &others) == 0 &&
           IsSameFile(own, others);
}

bool ObjectFile::Read(ObjectState& state) const {
    const ssize_t size = pread(file_.get(), &state, sizeof state, 0);
    if (size < 0) return FailWithErrno(errno);
    return size == static_cast<ssize_t>(sizeof state) || Fail(ERROR_FILE_INVALID);
}

bool ObjectFile::Write(const ObjectState& state) const {
    const ssize_t size = pwrite(file_.get(), &state, sizeof state, 0);
    if (size < 0) return FailWithErrno(errno);
    return size == static_cast<ssize_t>(sizeof state) || Fail(ERROR_DISK_FULL);
}

Gate::Gate(const ObjectFile& file) : file_(file.Descriptor()) {
    if (file && !LockByte(file_, LockMode::kExclusive, kGate)) isHeld_ = FailWithErrno(errno);
}

Gate::~Gate() {
    if (file_ >= 0 && isHeld_) UnlockByte(file_, kGate);
}

SyncObject::~SyncObject() = default;

bool SyncObject::Load(ObjectState& state) const {
    if (file_) return file_.Read(state);
    state = state_;
    return true;
}

bool SyncObject::Store(const ObjectState& state) {
    if (file_) return file_.Write(state);
    state_ = state;
    return true;
}

ObjectHandle::ObjectHandle(std::shared_ptr<SyncObject> object, DWORD access)
    // All rights to an event are more than all rights to a mutex.
    : GrantedObject((access & (GENERIC_ALL | MAXIMUM_ALLOWED)) != 0 ? EVENT_ALL_ACCESS : access),
      object_(std::move(object)) {}

DWORD ObjectHandle::Wait(const Deadline& deadline) {
    if (Allows(SYNCHRONIZE)) return object_->Wait(deadline);
    Fail(ERROR_ACCESS_DENIED);
    return WAIT_FAILED;
}

std::optional<uid_t> ObjectHandle::Owner() {
    struct stat info {};
    if (!object_->File()) return KernelObject::Owner();
    if (fstat(object_->File().Descriptor(), &info) == 0) return info.st_uid;
    return FailWithErrno<std::optional<uid_t>>(errno);
}

HANDLE CreateObject(const ObjectRequest& request, const SECURITY_ATTRIBUTES* attributes,
                    DWORD access) {
    if (request.name != nullptr && *request.name != 0) {
        return Open({request, PathOfObject(request.name, true), ModeOfNewFile(attributes)}, access);
    }
    auto object = request.make({}, request.state);
    if (request.isOwned) object->Wait(Deadline(0));
    SetLastError(ERROR_SUCCESS);
    return OpenHandle(std::make_shared<ObjectHandle>(std::move(object), access));
}

HANDLE OpenObject(const ObjectRequest& request, DWORD access) {
    if (request.name != nullptr) {
        return Open({request, PathOfObject(request.name, false), std::nullopt}, access);
    }
    return Fail<HANDLE>(ERROR_INVALID_PARAMETER);
}

}  // namespace platform
