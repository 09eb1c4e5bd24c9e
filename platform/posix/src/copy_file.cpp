#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <winbase.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "descriptor.h"
#include "last_error.h"
#include "paths.h"
#include "share_mode.h"
#include "thread_identity.h"

using namespace platform;

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// A file being written in the destination's folder. It has no name until it is complete, so that
// nothing is left of it whatever happens; on a file system without such files it has a temporary
// name.
class DraftFile {
  public:
    explicit DraftFile(int folder)
        : folder_(folder), file_(openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600)) {
        if (file_ || (errno != EOPNOTSUPP && errno != EISDIR)) return;
        std::string path = "/proc/self/fd/" + std::to_string(folder) + "/.snXXXXXX";
        file_ = UniqueDescriptor(mkostemp(path.data(), O_CLOEXEC));
        if (file_) name_ = path.substr(path.rfind('/') + 1);
    }
    DraftFile(const DraftFile&) = delete;
    DraftFile& operator=(const DraftFile&) = delete;
    ~DraftFile() {
        if (!name_.empty()) unlinkat(folder_, name_.c_str(), 0);
    }

    explicit operator bool() const { return static_cast<bool>(file_); }
    int Descriptor() const { return file_.get(); }

    // Takes the place of the file of that name, or gets the name when it must be free.
    bool TakeName(const std::string& name, bool mustBeFree) {
        if (name_.empty() && Link(name)) return true;
        if (name_.empty() && (mustBeFree || errno != EEXIST)) return false;
        // Only a name can take another's place. One that stays for long was left by a process that
        // was killed.
        constexpr int kTries = 100;
        const std::string draft = name_.empty() ? (".sn-" + name).substr(0, NAME_MAX) : name_;
        for (int i = 0; i < kTries; ++i) {
            if (name_.empty() && !Link(draft)) {
                if (errno != EEXIST) return false;
                if (i == kTries / 2) unlinkat(folder_, draft.c_str(), 0);
                usleep(1000);
                continue;
            }
            const unsigned flags = mustBeFree ? RENAME_NOREPLACE : 0;
            if (renameat2(folder_, draft.c_str(), folder_, name.c_str(), flags) == 0) {
                name_.clear();
                return true;
            }
            if (errno == ENOENT && name_.empty()) continue;  // another process took it for left
            const int error = errno;
            unlinkat(folder_, draft.c_str(), 0);
            errno = error;
            return false;
        }
        return false;
    }

  private:
    bool Link(const std::string& name) const {
        const std::string self = "/proc/self/fd/" + std::to_string(file_.get());
        return linkat(AT_FDCWD, self.c_str(), folder_, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
    }

    const int folder_;
    UniqueDescriptor file_;
    std::string name_;  // where it has one
};

// The buffer of a copy, which may have held secrets.
struct Buffer {
    std::vector<char> bytes = std::vector<char>(std::size_t{64} * 1024);
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { explicit_bzero(bytes.data(), bytes.size()); }
};

bool WriteAll(int file, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t put = write(file, bytes, size);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return FailWithErrno(errno);
        bytes += put;
        size -= static_cast<std::size_t>(put);
    }
    return true;
}

// What the system can copy by itself; the rest, if anything, by hand, which also finds out why the
// system could not.
bool CopyContent(int source, int destination) {
    constexpr std::size_t kPiece = std::size_t{1} << 30;
    while (copy_file_range(source, nullptr, destination, nullptr, kPiece, 0) > 0) continue;
    Buffer buffer;
    for (;;) {
        const ssize_t got = read(source, buffer.bytes.data(), buffer.bytes.size());
        if (got == 0) return true;
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return FailWithErrno(errno);
        if (!WriteAll(destination, buffer.bytes.data(), static_cast<std::size_t>(got))) {
            return false;
        }
    }
}

// The folder in which a path's last part stands, and that part. Symbolic links are followed as far
// as root or the thread's account made them: on Windows ordinary accounts make none. None, with
// errno set, when there is no such folder or somebody else made a link on the way.
struct Place {
    UniqueDescriptor folder;
    std::string name;
};

bool IsTrusted(const struct stat& link) {
    return link.st_uid == 0 || link.st_uid == ThreadAccount();
}

Place PlaceOf(std::string rest) {
    constexpr int kMaxLinks = 40;
    constexpr int kPass = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    UniqueDescriptor folder;
    for (int links = 0; links <= kMaxLinks;) {
        // 1. The next part; the last one needs not be there.
        if (!folder) folder = UniqueDescriptor(open(rest.starts_with('/') ? "/" : ".", kPass));
        rest.erase(0, rest.find_first_not_of('/'));
        const std::string name = rest.substr(0, rest.find('/'));
        const bool isLast = name.size() == rest.size();
        UniqueDescriptor next(openat(folder.get(), name.c_str(), kPass));
        if (!next && (!isLast || errno != ENOENT)) return {};
        // 2. Into it, or to where it leads.
        struct stat info {};
        if (next && fstat(next.get(), &info) != 0) return {};
        if (!next || !S_ISLNK(info.st_mode)) {
            if (isLast) return {std::move(folder), name};
            rest.erase(0, name.size());
            folder = std::move(next);
            continue;
        }
        char target[PATH_MAX];
        const ssize_t length = readlinkat(next.get(), "", target, sizeof target);
        if (length < 0 || !IsTrusted(info)) {
            errno = EACCES;
            return {};
        }
        rest.replace(0, name.size(), std::string(target, static_cast<std::size_t>(length)));
        if (rest.starts_with('/')) folder = UniqueDescriptor();
        ++links;
    }
    errno = ELOOP;
    return {};
}

// Opens the source, a regular file, for reading and looks at it.
UniqueDescriptor OpenSource(const std::string& path, struct stat& info) {
    UniqueDescriptor source(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!source || fstat(source.get(), &info) != 0) {
        return FailOnPath<UniqueDescriptor>(errno, path);
    }
    if (!S_ISREG(info.st_mode)) return Fail<UniqueDescriptor>(ERROR_ACCESS_DENIED);
    if (!TakeShare(source.get(), FILE_READ_DATA, kShareAll)) return {};
    return source;
}

// Opens the existing file as if it were written in place. None, with the last error set, when the
// caller may not.
UniqueDescriptor OpenExisting(const Place& place, const struct stat& source,
                              const struct stat& existing) {
    if (IsSameFile(existing, source)) {
        return Fail<UniqueDescriptor>(ERROR_SHARING_VIOLATION);
    }
    if (IsReadOnly(existing)) return Fail<UniqueDescriptor>(ERROR_ACCESS_DENIED);
    UniqueDescriptor file(openat(place.folder.get(), place.name.c_str(),
                                 O_WRONLY | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    if (!file) return FailWithErrno<UniqueDescriptor>(errno);
    if (S_ISREG(existing.st_mode) && !SharingAllows(file.get(), FILE_WRITE_DATA)) {
        return {};
    }
    return file;
}

// Into the existing file itself: a device or a pipe, or a file that was made empty to be filled,
// which is empty again when the copy fails.
BOOL Fill(int source, int existing) {
    if (CopyContent(source, existing)) return TRUE;
    const DWORD error = GetLastError();
    if (ftruncate(existing, 0) != 0) errno = 0;  // a device has no length
    return Fail(error);
}

}  // namespace

extern "C" BOOL WINAPI CopyFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName,
                                 BOOL bFailIfExists) {
    // 1. The source, and what stands at the destination.
    const std::string to = PathOf(lpNewFileName);
    struct stat sourceInfo {};
    const UniqueDescriptor source = OpenSource(PathOf(lpExistingFileName), sourceInfo);
    if (!source) return FALSE;
    const Place place = PlaceOf(to);
    if (!place.folder) return FailOnPath(errno, to);
    struct stat info {};
    const int folder = place.folder.get();
    const bool exists = fstatat(folder, place.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
    if (!exists && errno != ENOENT) return FailOnPath(errno, to);
    if (exists && bFailIfExists) return Fail(ERROR_FILE_EXISTS);
    if (exists && S_ISDIR(info.st_mode)) return Fail(ERROR_ACCESS_DENIED);
    UniqueDescriptor existing;
    if (exists) existing = OpenExisting(place, sourceInfo, info);
    if (exists && !existing) return FALSE;
    if (exists && !S_ISREG(info.st_mode)) return Fill(source.get(), existing.get());

    // 2. The whole content beside it; safely on disk, unless what it replaces is a file that was
    // made empty to be filled, where nothing can be lost. Such a file can stand where the caller
    // may make no other.
    const bool isFilled = exists && info.st_size == 0;
    DraftFile copy(folder);
    if (!copy && isFilled && errno == EACCES) return Fill(source.get(), existing.get());
    if (!copy) return FailOnPath(errno, to);
    if (!CopyContent(source.get(), copy.Descriptor())) return FALSE;
    // A file that is replaced keeps its owner and its permissions; an account that may not give a
    // file away keeps the copy. A new file is its owner's alone.
    if (exists && fchown(copy.Descriptor(), info.st_uid, info.st_gid) != 0) errno = 0;
    const mode_t mode = exists ? info.st_mode & 0777u : sourceInfo.st_mode & 0700u;
    if (fchmod(copy.Descriptor(), mode) != 0 || (!isFilled && fsync(copy.Descriptor()) != 0)) {
        return FailWithErrno(errno);
    }

    // 3. The name.
    return copy.TakeName(place.name, bFailIfExists != FALSE) ? TRUE : FailOnPath(errno, to);
}
