#include "admin/stored_backup.h"

#include <algorithm>
#include <bitset>
#include <cmath>
#include <string_view>

#include "admin/report.h"
#include "common/file.h"
#include "common/format.h"

namespace {

constexpr const WCHAR* kUnreadable = TEXT("%s cannot be read (error %u)");
constexpr const WCHAR* kNoBackup = TEXT("%s is no backup: it is neither XML nor encrypted");
constexpr const WCHAR* kNotOpened =
    TEXT("%s does not open: the password is wrong, or it is damaged");
constexpr const WCHAR* kDamaged = TEXT("%s is damaged: it is no whole XML document");
constexpr const WCHAR* kOtherRoot = TEXT("%s is no backup: its root element is another one");

constexpr DWORD kHeadSize = 4096;  // bytes

// The beginning of a file; throws Failure when it cannot be read.
std::string ReadHead(const WString& path) {
    const UniqueHandle file = OpenDiskFile(path, GENERIC_READ, OPEN_EXISTING);
    std::string head(kHeadSize, '\0');
    DWORD size = 0;
    if (!file || !ReadFile(file.get(), head.data(), kHeadSize, &size, nullptr)) {
        throw Failure(ExitCode::kInaccessible,
                      FormatWide(kUnreadable, path.c_str(), GetLastError()));
    }
    head.resize(size);
    return head;
}

// Whether bytes can be ciphertext: as many values occur as among random bytes, by and large, and
// there are enough of them for a document.
bool LooksEncrypted(std::string_view bytes) {
    constexpr std::size_t kSmallestFile = 28 + 2 * kRootStartTag.size();
    constexpr double kByteValues = 256;
    constexpr double kShare = 0.8;
    if (bytes.starts_with(kEncryptedFileMarker)) bytes.remove_prefix(kEncryptedFileMarker.size());
    if (bytes.size() < kSmallestFile) return false;
    std::bitset<256> seen;
    for (const char byte : bytes) seen.set(static_cast<unsigned char>(byte));
    const double expected =
        kByteValues * (1 - std::pow(1 - 1 / kByteValues, static_cast<double>(bytes.size())));
    return static_cast<double>(seen.count()) >= kShare * expected;
}

std::unique_ptr<WorkingCopy> MakeCopy(const WString& path, const SecureText& password) {
    auto copy = std::make_unique<WorkingCopy>(path, 0, password);
    return copy->Path().empty() || !IsPlain(ReadHead(copy->Path())) ? nullptr : std::move(copy);
}

// The plain copy, and the form in which the file is stored.
StoredBackup MakePlain(const WString& path, PasswordSource& password) {
    const std::string head = ReadHead(path);
    StoredBackup backup;
    backup.form = IsPlain(head) ? StoredForm::kPlain : StoredForm::kProtected;
    backup.copy = MakeCopy(path, SecureText());
    if (backup.copy) return backup;
    if (IsPlain(head)) {
        throw Failure(ExitCode::kInaccessible,
                      FormatWide(kUnreadable, path.c_str(), GetLastError()));
    }
    if (!LooksEncrypted(head))
        throw Failure(ExitCode::kNotGood, FormatWide(kNoBackup, path.c_str()));
    backup.form = StoredForm::kEncrypted;
    backup.copy = MakeCopy(path, password.Get());
    if (!backup.copy) throw Failure(ExitCode::kWrongPassword, FormatWide(kNotOpened, path.c_str()));
    return backup;
}

}  // namespace

const char* NameOf(StoredForm form) {
    constexpr const char* kNames[] = {"plain", "encrypted", "protected"};
    return kNames[static_cast<std::size_t>(form)];
}

StoredBackup OpenBackup(const WString& path, PasswordSource& password) {
    StoredBackup backup = MakePlain(path, password);
    backup.file = std::make_unique<ConfigFile>(backup.copy->Path());
    if (!backup.file->Load()) throw Failure(ExitCode::kNotGood, FormatWide(kDamaged, path.c_str()));
    if (backup.Root() == nullptr || backup.Root()->ValueStr() != kRootElement) {
        throw Failure(ExitCode::kNotGood, FormatWide(kOtherRoot, path.c_str()));
    }
    return backup;
}
