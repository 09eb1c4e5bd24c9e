#include "admin/commands.h"
#include "admin/dated_backups.h"
#include "admin/draft_file.h"
#include "admin/file_content.h"
#include "admin/judgement.h"
#include "admin/module_report.h"
#include "common/format.h"

namespace {

constexpr const WCHAR* kNotGood = TEXT("the backup is not good; %s was left as it was");

bool IsFolder(const WString& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

Report Create(const WString& destination, const MachineScope& scope, bool isEncrypted, int keep,
              PasswordSource& password) {
    const bool isInFolder = IsFolder(destination);
    const WString file = isInFolder ? NameDatedBackup(destination) : destination;
    const SecureText& word = password.GetLongEnough();

    const MachineBackup backup = BackUp(scope, word);
    ExpectToHaveRun(backup.outcome);
    const JudgedBackup made = JudgeBackup(backup.file.Path(), password);

    Report report;
    report.facts["file"] = WideToUtf8(file);
    const bool areAllGood = AddStates(StatesOfExport(backup.outcome, made.content), report);
    if (!areAllGood || !backup.outcome.succeeded || !made.isGood) {
        report.exitCode = ExitCode::kNotGood;
        report.error = WideToUtf8(FormatWide(kNotGood, file.c_str()));
        return report;
    }

    SecureBytes content = ReadContentOf(backup.file.Path());
    if (isEncrypted) content = EncryptContent(content, word);
    DraftFile draft(file, content.data(), content.size());
    OpenGoodBackup(draft.Path(), password);
    draft.TakePlace();
    report.text = Shown(file) + ": made and verified\n" + report.text;
    if (isInFolder && keep > 0) {
        const int deleted = KeepNewestBackups(destination, file, keep);
        report.facts["pruned"] = deleted;
        if (deleted > 0) report.text += "older backups deleted: " + std::to_string(deleted) + "\n";
    }
    return report;
}
