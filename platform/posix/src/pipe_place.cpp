#include "pipe_place.h"

#include <fcntl.h>
#include <namedpipeapi.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>

#include "endpoint.h"
#include "last_error.h"
#include "text.h"
#include "thread_identity.h"

namespace platform {
namespace {

constexpr char kBusy[] = "\\busy";
constexpr char kLock[] = "\\lock";

// The folder of the pipes. Below it, names are short enough for the address of a socket, however
// long the folder's own path is.
class PipeFolder {
  public:
    PipeFolder() : folder_(open(Path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        if (!folder_) FailWithErrno(errno);
    }
    // False, with the last error set, when there is no such folder.
    explicit operator bool() const { return static_cast<bool>(folder_); }
    int get() const { return folder_.get(); }

    static std::string Path() { return EndpointFolder() + "/run/pipes"; }
    // Makes the folder when it is missing; false, with the last error set, when that fails.
    static bool Make() {
        return !EndpointSubfolder("run", FolderUse::kEveryoneWrites).empty() &&
               !EndpointSubfolder("run/pipes", FolderUse::kEveryoneWrites).empty();
    }

    // Calls bind() or connect() for an entry; 0, or -1 with errno set.
    template <typename Call>
    int OnAddress(Call call, int socket, const std::string& entry) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = "/proc/self/fd/" + std::to_string(get()) + "/" + entry;
        if (path.size() >= sizeof address.sun_path) {
            errno = ENAMETOOLONG;
            return -1;
        }
        std::copy(path.begin(), path.end(), address.sun_path);
        return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    bool Rename(const std::string& from, const std::string& to) const {
        return renameat(get(), from.c_str(), get(), to.c_str()) == 0;
    }

  private:
    UniqueDescriptor folder_;
};

UniqueDescriptor NewSocket() {
    return UniqueDescriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// Whether some process serves the pipe.
bool IsServed(const PipeFolder& folder, const std::string& name) {
    const UniqueDescriptor lock(openat(folder.get(), (name + kLock).c_str(), O_RDONLY | O_CLOEXEC));
    struct flock held {};
    held.l_type = F_RDLCK;
    held.l_whence = SEEK_SET;
    return lock && fcntl(lock.get(), F_OFD_GETLK, &held) == 0 && held.l_type != F_UNLCK;
}

// Becomes the only process that serves the pipe.
UniqueDescriptor LockName(const PipeFolder& folder, const std::string& name) {
    const std::string entry = name + kLock;
    UniqueDescriptor lock(openat(folder.get(), entry.c_str(), O_RDWR | O_CLOEXEC));
    if (!lock && errno == ENOENT) {
        lock = UniqueDescriptor(
            openat(folder.get(), entry.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
        if (lock) fchmod(lock.get(), 0666);
    }
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (!lock || fcntl(lock.get(), F_OFD_SETLK, &whole) != 0) {
        const bool isTaken = lock && (errno == EAGAIN || errno == EACCES);
        Fail(isTaken ? ERROR_ACCESS_DENIED : ErrorOfErrno(errno));
        return {};
    }
    return lock;
}

// A socket that waits as a busy pipe. What a killed server left of the name goes.
UniqueDescriptor BindName(const PipeFolder& folder, const std::string& name, mode_t mode) {
    const std::string entry = name + kBusy;
    unlinkat(folder.get(), entry.c_str(), 0);
    unlinkat(folder.get(), name.c_str(), 0);
    UniqueDescriptor socket = NewSocket();
    // Nobody can connect before it listens, so its permissions hold from the first client on.
    if (!socket || folder.OnAddress(bind, socket.get(), entry) != 0 ||
        fchmodat(folder.get(), entry.c_str(), mode, 0) != 0 || listen(socket.get(), 0) != 0) {
        FailWithErrno(errno);
        return {};
    }
    return socket;
}

std::mutex listenersMutex;

std::map<std::string, std::weak_ptr<PipeListener>>& Listeners() {
    static std::map<std::string, std::weak_ptr<PipeListener>> listeners;
    return listeners;
}

}  // namespace

std::string PipeNameOf(LPCWSTR path) {
    constexpr std::u16string_view kPrefix = u"\\\\.\\PIPE\\";
    const std::u16string_view text = path == nullptr ? u"" : path;
    if (UpperCase(text.substr(0, kPrefix.size())) != kPrefix) return {};
    std::string name = BytesOf(UpperCase(text.substr(kPrefix.size())));
    const bool isFolder = name == "." || name == "..";
    return isFolder || name.find_first_of("\\/") != std::string::npos ? std::string() : name;
}

UniqueDescriptor ConnectToPipe(const std::string& name) {
    const PipeFolder folder;
    if (!folder) return {};
    UniqueDescriptor socket = NewSocket();
    if (!socket) {
        FailWithErrno(errno);
        return {};
    }
    if (folder.OnAddress(connect, socket.get(), name) == 0) return socket;
    const bool isAbsent = errno == ENOENT || errno == ECONNREFUSED;
    if (errno == EAGAIN || (isAbsent && IsServed(folder, name))) {
        Fail(ERROR_PIPE_BUSY);
    } else {
        Fail(isAbsent ? ERROR_FILE_NOT_FOUND : ErrorOfErrno(errno));
    }
    return {};
}

bool WaitForPipe(const std::string& name, const Deadline& deadline) {
    const PipeFolder folder;
    if (!folder) return false;
    // The watch stands before the first look, so nothing is missed between a look and a wait. A
    // server that ends closes its lock, which the watch reports, too.
    const UniqueDescriptor watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    const std::uint32_t changes = IN_CREATE | IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE;
    if (!watch || inotify_add_watch(watch.get(), PipeFolder::Path().c_str(), changes) < 0) {
        return FailWithErrno(errno);
    }
    for (;;) {
        if (!IsServed(folder, name)) return Fail(ERROR_FILE_NOT_FOUND);
        if (faccessat(folder.get(), name.c_str(), F_OK, 0) == 0) return true;
        if (deadline.HasPassed()) return Fail(ERROR_SEM_TIMEOUT);
        pollfd polled{watch.get(), POLLIN, 0};
        poll(&polled, 1, deadline.PollTimeout());
        std::array<char, 4096> events{};
        while (read(watch.get(), events.data(), events.size()) > 0) {
        }
    }
}

std::shared_ptr<PipeListener> PipeListener::Join(const std::string& name, mode_t mode, DWORD limit,
                                                 Instances instances) {
    const std::lock_guard lock(listenersMutex);
    std::shared_ptr<PipeListener> listener = Listeners()[name].lock();
    if (listener && instances == Instances::kFirstOnly) {
        Fail(ERROR_ACCESS_DENIED);
        return nullptr;
    }
    if (!listener) {
        const ActAsProcess asProcess;
        if (!PipeFolder::Make()) return nullptr;
        const PipeFolder folder;
        if (!folder) return nullptr;
        UniqueDescriptor nameLock = LockName(folder, name);
        if (!nameLock) return nullptr;
        UniqueDescriptor socket = BindName(folder, name, mode);
        if (!socket) return nullptr;
        listener = std::make_shared<PipeListener>(name, std::move(nameLock), std::move(socket));
        Listeners()[name] = listener;
    }
    const std::lock_guard own(listener->mutex_);
    if (limit != PIPE_UNLIMITED_INSTANCES && listener->instances_ >= limit) {
        Fail(ERROR_PIPE_BUSY);
        return nullptr;
    }
    ++listener->instances_;
    return listener;
}

PipeListener::PipeListener(std::string name, UniqueDescriptor lock, UniqueDescriptor socket)
    : name_(std::move(name)), lock_(std::move(lock)), socket_(std::move(socket)) {}

PipeListener::~PipeListener() {
    const ActAsProcess asProcess;
    const PipeFolder folder;
    if (!folder) return;
    unlinkat(folder.get(), (isPublished_ ? name_ : name_ + kBusy).c_str(), 0);
}

void PipeListener::Offer() {
    const std::lock_guard lock(mutex_);
    ++free_;
    Publish();
}

void PipeListener::Withdraw() {
    const std::lock_guard lock(mutex_);
    --free_;
    Publish();
}

UniqueDescriptor PipeListener::Accept() {
    UniqueDescriptor client(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (client) Withdraw();
    return client;
}

void PipeListener::Leave() {
    const std::lock_guard lock(mutex_);
    --instances_;
}

// Lets as many clients wait as instances are free. A client that slips in while the last one is
// taken waits for the next free instance.
void PipeListener::Publish() {
    if (free_ > 0) listen(socket_.get(), static_cast<int>(free_ - 1));
    if (isPublished_ == (free_ > 0)) return;
    const ActAsProcess asProcess;
    const PipeFolder folder;
    if (!folder) return;
    const std::string busy = name_ + kBusy;
    const bool isDone = free_ > 0 ? folder.Rename(busy, name_) : folder.Rename(name_, busy);
    if (isDone) isPublished_ = free_ > 0;
}

}  // namespace platform
