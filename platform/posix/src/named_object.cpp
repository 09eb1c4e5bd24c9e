#include "named_object.h"

#include <fcntl.h>
#include <synchapi.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <string_view>

#include "endpoint.h"
#include "last_error.h"
#include "security.h"
#include "text.h"
#include "thread_identity.h"

namespace platform {
namespace {

// Bytes of an object's file that locks are held on: each holder of the object has a shared lock on
// the first; whoever opens or gives up the object has an exclusive one on the second meanwhile.
constexpr off_t kExistence = 0;
constexpr off_t kGate = 1;

struct flock LockOf(short type, off_t byte) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return lock;
}

bool SetLock(int file, short type, off_t byte) {
    struct flock lock = LockOf(type, byte);
    int failed = 0;
    do {
        failed = fcntl(file, F_OFD_SETLKW, &lock);
    } while (failed != 0 && errno == EINTR);
    return failed == 0 || FailWithErrno(errno);
}

bool Exists(int file) {
    struct flock lock = LockOf(F_WRLCK, kExistence);
    return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// Keeps others from opening or giving up the object.
class Gate {
  public:
    explicit Gate(int file) : file_(file), passed_(SetLock(file, F_WRLCK, kGate)) {}
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    ~Gate() {
        if (passed_) SetLock(file_, F_UNLCK, kGate);
    }
    explicit operator bool() const { return passed_; }

  private:
    int file_;
    bool passed_;
};

// A file name for an object name: its letters and digits, and every other byte as %XX. Names of the
// session ("Local\") are the plain names. Empty, with the last error set, for an impossible name.
std::string FileNameOf(std::u16string_view name) {
    constexpr std::u16string_view kLocal = u"Local\\";
    constexpr std::u16string_view kGlobal = u"Global\\";
    if (name.starts_with(kLocal)) name.remove_prefix(kLocal.size());
    const std::size_t prefix = name.starts_with(kGlobal) ? kGlobal.size() : 0;
    if (name.find(u'\\', prefix) != std::u16string_view::npos) {
        Fail(ERROR_PATH_NOT_FOUND);
        return {};
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
std::string PathOfObject(LPCWSTR name) {
    const std::string file = FileNameOf(name);
    if (file.empty()) return {};
    const ActAsProcess asProcess;  // the folder is the machine's, also when a user's object is made
    const std::string folder = EndpointSubfolder("run", FolderUse::kEveryoneWrites);
    return folder.empty() ? std::string() : folder + "/" + file;
}

// Opens the file, or makes it when asked to. Not with O_CREAT alone: systems forbid that for
// another account's file in a folder that everyone writes.
UniqueDescriptor OpenObjectFile(const std::string& path, bool create) {
    constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    UniqueDescriptor file(open(path.c_str(), kFlags));
    if (!file && errno == ENOENT && create) {
        file = UniqueDescriptor(open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0600));
        if (!file && errno == EEXIST) return OpenObjectFile(path, create);
    }
    return file;
}

bool IsStillNamed(int file, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return fstat(file, &opened) == 0 && lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

ObjectState* MapState(int file) {
    struct stat info {};
    if (fstat(file, &info) != 0 || info.st_size < static_cast<off_t>(sizeof(ObjectState))) {
        Fail(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    void* const memory =
        mmap(nullptr, sizeof(ObjectState), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED) {
        FailWithErrno(errno);
        return nullptr;
    }
    return static_cast<ObjectState*>(memory);
}

}  // namespace

// How an object is to be opened.
struct ObjectMemory::Opening {
    std::string path;
    ObjectKind kind;
    const Initialize* initialize;  // of a new object; null: only an existing one is wanted
    mode_t mode;                   // of a new object
    bool existed = false;          // the result
};

std::unique_ptr<ObjectMemory> ObjectMemory::Create(LPCWSTR name,
                                                   const SECURITY_ATTRIBUTES* attributes,
                                                   ObjectKind kind, const Initialize& initialize,
                                                   bool& existed) {
    if (name == nullptr || *name == 0) {
        std::unique_ptr<ObjectMemory> memory(new ObjectMemory);
        memory->state_ = new ObjectState{};
        initialize(*memory->state_);
        existed = false;
        return memory;
    }
    Opening opening{PathOfObject(name), kind, &initialize, ModeOfNewFile(attributes)};
    auto memory = Attach(opening);
    existed = opening.existed;
    return memory;
}

std::unique_ptr<ObjectMemory> ObjectMemory::Open(LPCWSTR name, ObjectKind kind) {
    if (name == nullptr) {
        Fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Opening opening{PathOfObject(name), kind, nullptr, 0};
    return Attach(opening);
}

std::unique_ptr<ObjectMemory> ObjectMemory::Attach(Opening& opening) {
    if (opening.path.empty()) return nullptr;
    Outcome outcome = Outcome::kAgain;
    while (outcome == Outcome::kAgain) {
        std::unique_ptr<ObjectMemory> memory(new ObjectMemory);
        memory->path_ = opening.path;
        memory->file_ = OpenObjectFile(opening.path, opening.initialize != nullptr);
        if (!memory->file_) {
            FailWithErrno(errno);
            return nullptr;
        }
        outcome = memory->TryAttach(opening);
        if (outcome == Outcome::kDone) return memory;
    }
    return nullptr;
}

ObjectMemory::Outcome ObjectMemory::TryAttach(Opening& opening) {
    // 1. Nobody else opens or leaves the object now.
    const int file = file_.get();
    const Gate gate(file);
    if (!gate) return Outcome::kFailed;
    if (!IsStillNamed(file, path_)) return Outcome::kAgain;
    // 2. What the file stands for: an object, or nothing but the remains of one.
    opening.existed = Exists(file);
    if (!opening.existed && opening.initialize == nullptr) {
        Fail(ERROR_FILE_NOT_FOUND);
        return Outcome::kFailed;
    }
    if (!opening.existed) {
        const Outcome outcome = Recycle(opening.mode);
        if (outcome != Outcome::kDone) return outcome;
    }
    // 3. Its state.
    state_ = MapState(file);
    if (state_ == nullptr) return Outcome::kFailed;
    if (!opening.existed) {
        state_->kind = opening.kind;
        (*opening.initialize)(*state_);
    }
    if (state_->kind != opening.kind) {
        Fail(ERROR_INVALID_HANDLE);
        return Outcome::kFailed;
    }
    // 4. One holder more.
    return SetLock(file, F_RDLCK, kExistence) ? Outcome::kDone : Outcome::kFailed;
}

// Makes the file ready for a new object. It may be left over from a killed process, perhaps of
// another account, which must not get at a new private object by it.
ObjectMemory::Outcome ObjectMemory::Recycle(mode_t mode) const {
    const auto fail = [](int error) {
        FailWithErrno(error);
        return Outcome::kFailed;
    };
    struct stat info {};
    if (fstat(file_.get(), &info) != 0) return fail(errno);
    if (!S_ISREG(info.st_mode)) return fail(EACCES);
    if (info.st_uid != ThreadAccount()) {
        if (unlink(path_.c_str()) == 0) return Outcome::kAgain;
        if (mode != (info.st_mode & 0777)) return fail(EACCES);
    } else if (fchmod(file_.get(), mode) != 0) {
        return fail(errno);
    }
    const bool cleared = ftruncate(file_.get(), 0) == 0 &&  //
                         ftruncate(file_.get(), sizeof(ObjectState)) == 0;
    return cleared ? Outcome::kDone : fail(errno);
}

ObjectMemory::~ObjectMemory() {
    if (!file_) {
        delete state_;
        return;
    }
    if (state_ == nullptr) return;
    const Gate gate(file_.get());
    SetLock(file_.get(), F_UNLCK, kExistence);
    munmap(state_, sizeof *state_);
    // In a folder that everyone writes only its owner may remove the file; one that stays behind
    // is no object.
    if (!Exists(file_.get()) && IsStillNamed(file_.get(), path_)) unlink(path_.c_str());
}

NamedObject::NamedObject(std::unique_ptr<ObjectMemory> memory, DWORD access)
    : memory_(std::move(memory)), access_(access) {
    constexpr DWORD kEverything = GENERIC_ALL | MAXIMUM_ALLOWED;
    // All rights to an event are more than all rights to a mutex.
    if ((access & kEverything) != 0) access_ |= EVENT_ALL_ACCESS;
}

DWORD NamedObject::Wait(DWORD milliseconds) {
    if (Allows(SYNCHRONIZE)) return WaitForState(milliseconds);
    Fail(ERROR_ACCESS_DENIED);
    return WAIT_FAILED;
}

}  // namespace platform
