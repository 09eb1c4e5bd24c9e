#include "admin/draft_file.h"

#include <utility>

#include "admin/report.h"
#include "common/file.h"
#include "common/format.h"
#include "common/security.h"

namespace {

constexpr const WCHAR* kSuffix = TEXT(".snbackup-draft");
constexpr const WCHAR* kNotWritten = TEXT("%s cannot be written (error %u)");

[[noreturn]] void Fail(const WString& path) {
    const DWORD error = GetLastError();
    throw Failure(ExitCode::kInaccessible, FormatWide(kNotWritten, path.c_str(), error));
}

UniqueHandle Create(const WString& path) {
    OwnerAccess ownerAlone;
    if (ownerAlone.get() == nullptr) return {};
    return UniqueHandle(CreateFileW(path.c_str(), GENERIC_WRITE, 0, ownerAlone.get(), CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
}

}  // namespace

DraftFile::DraftFile(WString destination, const void* content, std::size_t size)
    : destination_(std::move(destination)), path_(destination_ + kSuffix) {
    UniqueHandle file;
    {
        const InterruptionPause pause;
        file = Create(path_);
        if (!file && GetLastError() == ERROR_FILE_EXISTS && DeleteFileW(path_.c_str())) {
            file = Create(path_);
        }
        isDraft_ = static_cast<bool>(file);
    }
    if (isDraft_ && WriteAll(file.get(), content, size) && FlushFileBuffers(file.get())) return;
    const DWORD error = GetLastError();
    file.reset();
    if (isDraft_) Remove();
    SetLastError(error);
    Fail(destination_);
}

DraftFile::~DraftFile() {
    const InterruptionPause pause;
    if (isDraft_) Remove();
}

void DraftFile::TakePlace() {
    const InterruptionPause pause;
    const auto move = [&] {
        return MoveFileExW(path_.c_str(), destination_.c_str(),
                           MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
    };
    if (!RetryWhileBusy(move)) Fail(destination_);
    isDraft_ = false;
}

bool DraftFile::Remove() {
    return !isDraft_ || DeleteFileW(path_.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND;
}
