#include "pipe_listener.h"

#include <fcntl.h>
#include <namedpipeapi.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "endpoint.h"
#include "last_error.h"
#include "text.h"
#include "thread_identity.h"

namespace platform {
namespace {

constexpr const char* kFolder = "run/pipes";
// The folder of the pipes. Below it, names are short enough for the address of a socket, however
// long the folder's own path is.
class PipeFolder {
  public:
    // The folder as it is. Not open, with the last error set, when it is missing or not the
    // machine's.
    static PipeFolder Open() { return PipeFolder(EndpointFolder() + "/" + kFolder); }
    // Makes the folder when it is missing, and keeps others from making or removing pipes.
    static PipeFolder Lock() {
        const std::string path = EndpointSubfolder(kFolder, FolderUse::kEveryoneWrites);
        if (path.empty()) return {};
        PipeFolder folder(path);
        if (folder) flock(folder.folder_.get(), LOCK_EX);
        return folder;
    }
    explicit operator bool() const { return static_cast<bool>(folder_); }

    // Calls bind() or connect() for a pipe; 0, or -1 with errno set.
    template <typename Call>
    int OnAddress(Call call, int socket, const std::string& name) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = "/proc/self/fd/" + std::to_string(folder_.get()) + "/" + name;
        if (path.size() >= sizeof address.sun_path) {
            errno = ENAMETOOLONG;
            return -1;
        }
        std::copy(path.begin(), path.end(), address.sun_path);
        return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    bool Remove(const std::string& name) const {
        return unlinkat(folder_.get(), name.c_str(), 0) == 0;
    }
    bool SetMode(const std::string& name, mode_t mode) const {
        return fchmodat(folder_.get(), name.c_str(), mode, 0) == 0;
    }

  private:
    PipeFolder() = default;
    explicit PipeFolder(const std::string& path)
        : folder_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
        struct stat info {};
        if (!folder_ || fstat(folder_.get(), &info) != 0) {
            FailWithErrno(errno);
        } else if (!OwnsMachine(info.st_uid)) {
            folder_ = {};
            Fail(ERROR_ACCESS_DENIED);
        }
    }

    UniqueDescriptor folder_;
};

UniqueDescriptor NewSocket(int type) {
    UniqueDescriptor made(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made) FailWithErrno(errno);
    return made;
}

// What a connection would meet: ENOENT or ECONNREFUSED where nobody serves the pipe. A socket of
// another type is told, but never gets into the server's queue.
int Probe(const PipeFolder& folder, const std::string& name) {
    const UniqueDescriptor probe = NewSocket(SOCK_STREAM);
    if (!probe) return EMFILE;
    return folder.OnAddress(connect, probe.get(), name) == 0 ? 0 : errno;
}

// Gives the socket the pipe's name. What a killed server left of the name goes.
bool Bind(const PipeFolder& folder, const std::string& name, int socket) {
    if (folder.OnAddress(bind, socket, name) == 0) return true;
    if (errno != EADDRINUSE) return FailWithErrno(errno);
    const bool isLeftOver = Probe(folder, name) == ECONNREFUSED;
    if (!isLeftOver || !folder.Remove(name)) return Fail(ERROR_ACCESS_DENIED);
    return folder.OnAddress(bind, socket, name) == 0 || FailWithErrno(errno);
}

// A socket that clients of the pipe can connect to.
UniqueDescriptor Listen(const std::string& name, mode_t mode) {
    const ActAsProcess asProcess;
    const PipeFolder folder = PipeFolder::Lock();
    UniqueDescriptor socket = folder ? NewSocket(SOCK_SEQPACKET) : UniqueDescriptor();
    if (!socket || !Bind(folder, name, socket.get())) return {};
    // Nobody can connect before it listens, so its permissions hold from the first client on.
    if (folder.SetMode(name, mode) && listen(socket.get(), SOMAXCONN) == 0) return socket;
    FailWithErrno(errno);
    folder.Remove(name);
    return {};
}

bool HasHungUp(int client) {
    pollfd polled{client, 0, 0};
    return poll(&polled, 1, 0) > 0 && (polled.revents & POLLHUP) != 0;
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
    const PipeFolder folder = PipeFolder::Open();
    UniqueDescriptor socket = folder ? NewSocket(SOCK_SEQPACKET) : UniqueDescriptor();
    if (!socket || folder.OnAddress(connect, socket.get(), name) == 0) return socket;
    const bool isAbsent = errno == ENOENT || errno == ECONNREFUSED;
    const DWORD other = errno == EAGAIN ? ERROR_PIPE_BUSY : ErrorOfErrno(errno);
    return Fail<UniqueDescriptor>(isAbsent ? ERROR_FILE_NOT_FOUND : other);
}

bool IsPipeServed(const std::string& name) {
    const PipeFolder folder = PipeFolder::Open();
    if (!folder) return false;
    const int error = Probe(folder, name);
    if (error == 0 || error == EPROTOTYPE) return true;
    return error == ECONNREFUSED ? Fail(ERROR_FILE_NOT_FOUND) : FailWithErrno(error);
}

std::shared_ptr<PipeListener> PipeListener::Join(const std::string& name, mode_t mode, DWORD limit,
                                                 Instances instances) {
    const std::lock_guard lock(listenersMutex);
    std::shared_ptr<PipeListener> listener = Listeners()[name].lock();
    if (listener && instances == Instances::kFirstOnly) {
        return Fail<std::shared_ptr<PipeListener>>(ERROR_ACCESS_DENIED);
    }
    if (!listener) {
        UniqueDescriptor socket = Listen(name, mode);
        if (!socket) return nullptr;
        listener = std::make_shared<PipeListener>(name, std::move(socket));
        Listeners()[name] = listener;
    }
    if (limit != PIPE_UNLIMITED_INSTANCES && listener->instances_ >= limit) {
        return Fail<std::shared_ptr<PipeListener>>(ERROR_PIPE_BUSY);
    }
    ++listener->instances_;
    return listener;
}

PipeListener::~PipeListener() {
    const ActAsProcess asProcess;
    const PipeFolder folder = PipeFolder::Lock();
    if (folder) folder.Remove(name_);
    // Only now another server may have the name.
    socket_ = {};
}

UniqueDescriptor PipeListener::Accept() const {
    for (;;) {
        UniqueDescriptor client(
            accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!client || !HasHungUp(client.get())) return client;
    }
}

void PipeListener::Leave() {
    const std::lock_guard lock(listenersMutex);
    --instances_;
}

}  // namespace platform
