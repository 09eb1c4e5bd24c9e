#include "config/temporary_file.h"

#include <utilsdll.h>

#include <utility>

#include "app/services/client_log.h"
#include "app/services/interruption.h"
#include "common/file.h"
#include "common/path.h"
#include "common/security.h"

namespace {

constexpr const WCHAR* kEmptied = TEXT("Failed to delete temporary file, emptied instead (%s)");
constexpr const WCHAR* kNotEmptied = TEXT("Failed to delete and to empty temporary file (%s)");

bool IsGone() {
    return GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND;
}

bool Delete(const WString& path) {
    return RetryWhileBusy([&] { return DeleteFileW(path.c_str()) || IsGone(); });
}

bool Empty(const WString& path) {
    const UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    return file && SetEndOfFile(file.get());
}

// What a run leaves where files cannot be deleted holds no plain text.
void Remove(const WString& path) {
    if (!Delete(path)) log_error_fmt(g_hLog, Empty(path) ? kEmptied : kNotEmptied, path.c_str());
    RemoveDirectoryW(FolderOfPath(path).c_str());
}

// The same while the run still works: once the folder is gone, nothing can be made there.
bool RemoveUnderway(const WString& path) {
    DeleteFileW(path.c_str());
    return RemoveDirectoryW(FolderOfPath(path).c_str()) || IsGone();
}

}  // namespace

bool ReplaceByOwnFile(const WString& path, const void* content, std::size_t size) {
    OwnerAccess ownerAlone;
    UniqueHandle file;
    const auto create = [&] {
        file.reset(CreateFileW(path.c_str(), GENERIC_WRITE, 0, ownerAlone.get(), CREATE_NEW,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
        return static_cast<bool>(file);
    };
    return ownerAlone.get() != nullptr && Delete(path) && RetryWhileBusy(create) &&
           WriteAll(file.get(), content, size);
}

struct TemporaryFile::File {
    explicit File(WString filePath) : path(std::move(filePath)) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { Remove(path); }

    const WString path;
    const TidyOnInterruption tidy{[this] { return RemoveUnderway(path); }};
};

TemporaryFile::TemporaryFile() = default;
TemporaryFile::TemporaryFile(TemporaryFile&& other) noexcept = default;
TemporaryFile& TemporaryFile::operator=(TemporaryFile&& other) noexcept = default;
TemporaryFile::~TemporaryFile() = default;

TemporaryFile TemporaryFile::Make() {
    TemporaryFile made;
    WCHAR folder[kPathCapacity] = {};
    WCHAR path[kPathCapacity] = {};
    const DWORD length = GetTempPathW(MAX_PATH, folder);
    if (length == 0 || length > MAX_PATH) return made;
    const InterruptionPause pause;
    if (fs_get_temp_file_path(folder, nullptr, path, kPathCapacity) != 0) {
        made.file_ = std::make_unique<File>(path);
    }
    return made;
}

const WString& TemporaryFile::Path() const {
    static const WString kNone;
    return file_ ? file_->path : kNone;
}
