#include <configuration_format.h>
#include <utilsdll.h>

#include <algorithm>

#include "admin/commands.h"
#include "admin/comparison.h"
#include "admin/draft_file.h"
#include "admin/judgement.h"
#include "common/file.h"
#include "common/format.h"

namespace {

constexpr std::size_t kMinPasswordLength = 8;  // UTF-16 units, as SNConfig asks for
constexpr DWORD kCipherOverhead = 28;          // bytes

constexpr const WCHAR* kTooShort = TEXT("the new password needs 8 characters at least");
constexpr const WCHAR* kUnknownModule =
    TEXT("%s holds a module that is not known (%s): its protected values would keep the password");
constexpr const WCHAR* kNotEncrypted = TEXT("%s cannot be encrypted with the new password");
constexpr const WCHAR* kCopyFailed = TEXT("the temporary copy cannot be written or read");
constexpr const WCHAR* kNotTheSame = TEXT("what was written does not restore what %s does");

const SecureText& LongEnough(PasswordSource& source) {
    const SecureText& password = source.Get();
    if (password.size() < kMinPasswordLength) throw Failure(ExitCode::kUsage, kTooShort);
    return password;
}

SecureBytes ReadPlain(const WString& path) {
    const UniqueHandle file = OpenDiskFile(path, GENERIC_READ, OPEN_EXISTING);
    LARGE_INTEGER size = {};
    DWORD read = 0;
    if (!file || !GetFileSizeEx(file.get(), &size)) {
        throw Failure(ExitCode::kInaccessible, kCopyFailed);
    }
    SecureBytes content(static_cast<std::size_t>(size.QuadPart));
    if (!ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &read, nullptr) ||
        read != content.size()) {
        throw Failure(ExitCode::kInaccessible, kCopyFailed);
    }
    return content;
}

// The marker and the encrypted message of a document; empty when it cannot be encrypted.
SecureBytes Encrypt(const SecureBytes& plain, const SecureText& password) {
    SecureBytes file(kEncryptedFileMarker.size() + plain.size() + kCipherOverhead);
    std::ranges::copy(kEncryptedFileMarker, file.begin());
    auto size = static_cast<DWORD>(plain.size() + kCipherOverhead);
    if (encrypt_buffer(plain.data(), static_cast<DWORD>(plain.size()),
                       file.data() + kEncryptedFileMarker.size(), &size, password.c_str()) != 0) {
        return {};
    }
    return file;
}

// The document with the new password, in the form that is asked for.
SecureBytes Reencrypt(const WString& path, JudgedBackup& backup, bool isEncrypted,
                      const SecureText& oldPassword, const SecureText& newPassword) {
    ConfigFile& file = *backup.stored.file;
    for (const std::string& name : backup.content.unknown) {
        const auto* const element = file.Root()->FirstChildElement(name);
        if (CountValues(*element).isProtected == 0) continue;
        throw Failure(ExitCode::kNotGood,
                      FormatWide(kUnknownModule, path.c_str(), OneLine(Utf8ToWide(name)).c_str()));
    }
    if (!ChangePassword(*file.Root(), oldPassword, newPassword)) {
        throw Failure(ExitCode::kNotGood, FormatWide(kNotEncrypted, path.c_str()));
    }
    if (!file.Save()) throw Failure(ExitCode::kInaccessible, kCopyFailed);
    SecureBytes content = ReadPlain(file.Path());
    if (isEncrypted) content = Encrypt(content, newPassword);
    if (content.empty()) throw Failure(ExitCode::kNotGood, FormatWide(kNotEncrypted, path.c_str()));
    return content;
}

}  // namespace

Report Rekey(const WString& file, const WString& out, Envelope envelope, PasswordSource& password,
             PasswordSource& newPassword) {
    JudgedBackup backup = OpenGoodBackup(file, password);
    const SecureText none;
    const SecureText& oldPassword = NeedsPassword(*backup.stored.Root()) ? password.Get() : none;
    const bool isEncrypted =
        envelope == Envelope::kEncrypted ||
        (envelope == Envelope::kAsBefore && backup.stored.form != StoredForm::kPlain);
    const SecureBytes content =
        Reencrypt(file, backup, isEncrypted, oldPassword, LongEnough(newPassword));

    DraftFile draft(out, content.data(), content.size());
    const JudgedBackup written = OpenGoodBackup(draft.Path(), newPassword);
    if (!Compare(backup.content, written.content).empty()) {
        throw Failure(ExitCode::kNotGood, FormatWide(kNotTheSame, file.c_str()));
    }
    draft.TakePlace();

    Report report;
    report.facts["file"] = WideToUtf8(file);
    report.facts["out"] = WideToUtf8(out);
    report.facts["form"] = NameOf(written.stored.form);
    report.text =
        Shown(out) + ": has the new password; stored: " + NameOf(written.stored.form) + "\n";
    return report;
}
