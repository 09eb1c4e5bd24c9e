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

namespace {

using platform::Fail;
using platform::FailOnPath;
using platform::FailWithErrno;
using platform::UniqueDescriptor;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// A file being written under a name of its own beside the destination; unless it was given that
// name at the end, nothing of it is left.
class SiblingFile {
  public:
    explicit SiblingFile(const std::string& destination)
        : path_(platform::ParentOf(destination) + "/.snXXXXXX"),
          file_(mkostemp(path_.data(), O_CLOEXEC)) {}
    SiblingFile(const SiblingFile&) = delete;
    SiblingFile& operator=(const SiblingFile&) = delete;
    ~SiblingFile() {
        if (file_ && !renamed_) unlink(path_.c_str());
    }

    explicit operator bool() const { return static_cast<bool>(file_); }
    int Descriptor() const { return file_.get(); }
    // Takes the destination's place, or becomes it when `mustBeNew` and there is none.
    bool RenameTo(const std::string& destination, bool mustBeNew) {
        renamed_ = renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, destination.c_str(),
                             mustBeNew ? RENAME_NOREPLACE : 0) == 0;
        return renamed_ || FailOnPath(errno, destination);
    }

  private:
    std::string path_;
    UniqueDescriptor file_;
    bool renamed_ = false;
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

// Follows symbolic links to the name that the destination really has, which need not exist.
bool ResolveLinks(std::string& path) {
    char target[PATH_MAX];
    for (int links = 0; links < 40; ++links) {
        const ssize_t length = readlink(path.c_str(), target, sizeof target);
        if (length < 0) return true;
        const std::string next(target, static_cast<std::size_t>(length));
        if (next.starts_with('/')) {
            path = next;
        } else {
            path = platform::ParentOf(path).append("/").append(next);
        }
    }
    return FailWithErrno(ELOOP);
}

// Opens the source for reading and looks at it.
UniqueDescriptor OpenSource(const std::string& path, struct stat& info) {
    UniqueDescriptor source(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!source || fstat(source.get(), &info) != 0) {
        FailOnPath(errno, path);
        return {};
    }
    if (S_ISDIR(info.st_mode)) {
        Fail(ERROR_ACCESS_DENIED);
        return {};
    }
    if (S_ISREG(info.st_mode) && !platform::TakeShare(source.get(), FILE_READ_DATA, kShareAll)) {
        return {};
    }
    return source;
}

// Whether the caller may write the existing file, as if it were written in place.
bool MayReplace(const std::string& path, const struct stat& source, const struct stat& existing) {
    if (existing.st_dev == source.st_dev && existing.st_ino == source.st_ino) {
        return Fail(ERROR_SHARING_VIOLATION);
    }
    if (platform::IsReadOnly(existing)) return Fail(ERROR_ACCESS_DENIED);
    const UniqueDescriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file) return FailOnPath(errno, path);
    return platform::SharingAllows(file.get(), FILE_WRITE_DATA);
}

BOOL WriteDirectly(int source, const std::string& destination) {
    const UniqueDescriptor file(open(destination.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
    if (!file) return FailOnPath(errno, destination);
    return CopyContent(source, file.get()) ? TRUE : FALSE;
}

}  // namespace

extern "C" BOOL WINAPI CopyFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName,
                                 BOOL bFailIfExists) {
    // 1. The source, and what stands at the destination.
    const std::string from = platform::PathOf(lpExistingFileName);
    std::string to = platform::PathOf(lpNewFileName);
    struct stat sourceInfo {};
    const UniqueDescriptor source = OpenSource(from, sourceInfo);
    if (!source || !ResolveLinks(to)) return FALSE;
    struct stat existing {};
    const bool exists = stat(to.c_str(), &existing) == 0;
    if (!exists && errno != ENOENT) return FailOnPath(errno, to);
    if (exists && bFailIfExists) return Fail(ERROR_FILE_EXISTS);
    if (exists && S_ISDIR(existing.st_mode)) return Fail(ERROR_ACCESS_DENIED);
    if (exists && !S_ISREG(existing.st_mode)) return WriteDirectly(source.get(), to);
    if (exists && !MayReplace(to, sourceInfo, existing)) return FALSE;

    // 2. The whole content under another name; safely on disk, unless what it replaces is a file
    // that was made empty to be filled, where nothing can be lost.
    SiblingFile copy(to);
    if (!copy) return FailOnPath(errno, to);
    if (!CopyContent(source.get(), copy.Descriptor())) return FALSE;
    // Who may use it: as the file that is replaced, a new one as the source. An administrator's
    // copy also keeps the owner; for others the change of owner fails, and the copy is theirs.
    const struct stat& access = exists ? existing : sourceInfo;
    if (fchown(copy.Descriptor(), access.st_uid, access.st_gid) != 0) errno = 0;
    const mode_t mode = access.st_mode & 0777u;
    const bool isFilled = exists && existing.st_size == 0;
    if (fchmod(copy.Descriptor(), mode) != 0 || (!isFilled && fsync(copy.Descriptor()) != 0)) {
        return FailWithErrno(errno);
    }

    // 3. The name.
    return copy.RenameTo(to, bFailIfExists != FALSE) ? TRUE : FALSE;
}
