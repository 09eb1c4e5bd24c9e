#include "admin/commands.h"
#include "admin/comparison.h"
#include "admin/draft_file.h"
#include "admin/file_content.h"
#include "admin/judgement.h"
#include "common/format.h"

namespace {

constexpr const WCHAR* kUnknownModule =
    TEXT("%s holds a module that is not known (%s): its protected values would keep the password");
constexpr const WCHAR* kNotEncrypted = TEXT("%s cannot be encrypted with the new password");
constexpr const WCHAR* kCopyFailed = TEXT("the temporary copy cannot be written");
constexpr const WCHAR* kNotTheSame = TEXT("what was written does not restore what %s does");

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
    SecureBytes content = ReadContentOf(file.Path());
    return isEncrypted ? EncryptContent(content, newPassword) : std::move(content);
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
        Reencrypt(file, backup, isEncrypted, oldPassword, newPassword.GetLongEnough());

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
