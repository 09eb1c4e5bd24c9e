#include "admin/judgement.h"

#include "admin/report.h"
#include "common/format.h"

namespace {

constexpr const WCHAR* kWrongPassword = TEXT("the password of %s is another one");
constexpr const WCHAR* kDamaged = TEXT("%s is damaged; snbackup verify lists what");

// Whether what is made with the password can be read, or else something shows that the password is
// the right one.
bool IsPasswordRight(const StoredBackup& stored, const BackupContent& content) {
    const bool isVerifierWrong = content.verifier == Verifier::kWrong;
    if (content.CountDamaged() == 0 && !isVerifierWrong) return true;
    const bool isAnythingProtected =
        isVerifierWrong || CountValues(*stored.Root()).isProtected != 0;
    return stored.form == StoredForm::kEncrypted || content.verifier == Verifier::kGood ||
           content.CountProtected() != 0 || !isAnythingProtected;
}

}  // namespace

JudgedBackup JudgeBackup(const WString& path, PasswordSource& password) {
    JudgedBackup backup;
    backup.stored = OpenBackup(path, password);
    TiXmlElement& root = *backup.stored.Root();
    const SecureText none;
    backup.content = ReadContent(root, NeedsPassword(root) ? password.Get() : none);
    if (!IsPasswordRight(backup.stored, backup.content)) {
        throw Failure(ExitCode::kWrongPassword, FormatWide(kWrongPassword, path.c_str()));
    }
    backup.isGood =
        backup.content.CountDamaged() == 0 && backup.content.verifier != Verifier::kWrong;
    return backup;
}

JudgedBackup OpenGoodBackup(const WString& path, PasswordSource& password) {
    JudgedBackup backup = JudgeBackup(path, password);
    if (!backup.isGood) throw Failure(ExitCode::kNotGood, FormatWide(kDamaged, path.c_str()));
    return backup;
}
