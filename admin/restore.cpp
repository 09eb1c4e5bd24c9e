#include <algorithm>
#include <set>

#include "admin/commands.h"
#include "admin/comparison.h"
#include "admin/file_content.h"
#include "admin/judgement.h"
#include "admin/module_report.h"
#include "admin/safety_copy.h"
#include "common/format.h"
#include "config/guards.h"
#include "config/trusted_parent.h"
#include "registry/vpn_only.h"

namespace {

constexpr const WCHAR* kNotReduced = TEXT("%s cannot be reduced to its VPN connections");
constexpr const WCHAR* kNotAsInFile = TEXT("the machine is not as %s says");
constexpr const char* kWentBack = "the machine is as it was before";
constexpr const char* kNotBack = "the machine is NOT as it was before";

struct RefusalRow {
    int result;
    ExitCode exitCode;
    const WCHAR* text;
};
constexpr RefusalRow kRefusals[] = {
    {kResultWrongUnlockPassword, ExitCode::kWrongPassword, TEXT("the unlock password is wrong")},
    {kResultProtected, ExitCode::kRefused, TEXT("the configuration is locked")},
    {kResultNoRights, ExitCode::kRefused, TEXT("a restore needs administrator rights")},
    {kResultUnusable, ExitCode::kNotGood, TEXT("the backup cannot be used")},
};

void ExpectResult(int result) {
    for (const auto& [refused, exitCode, text] : kRefusals) {
        if (result == refused) throw Failure(exitCode, text);
    }
}

// The unlock password where one is set and given, or can be asked for.
SecureText UnlockPassword(PasswordSource& source) {
    return IsLockPasswordSet() && source.CanGet() ? source.Get() : SecureText();
}

// The plain copy of the backup becomes what is restored of it.
void Reduce(const WString& path, const MachineScope& scope, const SecureText& password,
            JudgedBackup& backup) {
    if (!scope.isVpnOnly) return;
    ConfigFile& file = *backup.stored.file;
    if (FilterVpnOnlyConfig(file.Path()) != kVpnOnlyDone) {
        throw Failure(ExitCode::kInaccessible, FormatWide(kNotReduced, path.c_str()));
    }
    file.Unload();
    if (!file.Load() || file.Root() == nullptr) {
        throw Failure(ExitCode::kInaccessible, FormatWide(kNotReduced, path.c_str()));
    }
    backup.content = ReadContent(*file.Root(), password);
}

// Each module of the file that was asked for, with how its restore ended.
std::vector<ModuleState> StatesOfImport(const RequestOutcome& outcome, const BackupContent& file,
                                        const std::vector<Difference>& left) {
    std::set<std::string> differing;
    for (const Difference& difference : left) differing.insert(difference.module);
    std::vector<ModuleState> states;
    for (const ModuleOutcome& module : outcome.operation.modules) {
        const std::string name = WideToUtf8(module.module);
        if (std::ranges::find(file.modules, name, &ContentModule::name) == file.modules.end()) {
            continue;
        }
        const char* state = "restored";
        if (!module.isLibraryFound || !module.isFunctionFound) {
            state = "plug-in missing";
        } else if (module.hasFailed) {
            state = "failed";
        } else if (differing.contains(name)) {
            state = "not as in the file";
        }
        states.push_back({name, state, WStringView(Utf8ToWide(state)) == TEXT("restored")});
    }
    if (differing.contains(kUserSection)) {
        states.push_back({kUserSection, "not as in the file", false});
    }
    return states;
}

void AddDifferences(const std::vector<Difference>& differences, Report& report) {
    report.facts["differences"] = nlohmann::ordered_json::array();
    for (const Difference& difference : differences) {
        report.facts["differences"].push_back(FactOf(difference));
        report.text += "  " + LineOf(difference) + "\n";
    }
}

std::string WayBack(const WString& safety) {
    return "to go back: snbackup restore '" + Shown(safety) + "'\n";
}

// Restores the snapshot, and tells whether the machine is as it was.
bool GoBack(const Snapshot& before, const MachineScope& scope, const SecureText& password,
            const SecureText& unlockPassword) {
    MachineScope whole = scope;
    whole.isVpnOnly = false;
    RestoreFrom(before.backup.file.Path(), whole, password, unlockPassword);
    return Compare(before.content, TakeSnapshot(scope, password).content).empty();
}

}  // namespace

Report Restore(const WString& file, const RestoreWords& words, PasswordSource& password,
               PasswordSource& unlockPassword) {
    // 1. What is to be restored, and whether it may be.
    JudgedBackup backup = OpenGoodBackup(file, password);
    const SecureText& word = password.Get();
    MachineScope scope = words.scope;
    if (scope.isVpnOnly) scope.modules = {"vpn"};
    scope.hasUser = HasUserSection(backup.content);
    Reduce(file, scope, word, backup);
    const Snapshot before = TakeSnapshot(scope, word);
    const auto changes = CompareWithMachine(backup.content, before.content, scope.modules);
    Report report;
    report.facts["file"] = WideToUtf8(file);
    if (words.isDryRun) {
        report.text = changes.empty() ? "nothing would change\n" : "would change:\n";
        AddDifferences(changes, report);
        return report;
    }
    const SecureText unlock = UnlockPassword(unlockPassword);
    ExpectResult(CheckRights());
    ExpectResult(CheckLocks(unlock, IsParentTrusted()));

    // 2. The way back.
    const WString safety =
        WriteSafetyCopy(EncryptContent(ReadContentOf(before.backup.file.Path()), word));
    report.facts["safety_copy"] = WideToUtf8(safety);
    report.text = "safety copy: " + Shown(safety) + "\n";

    // 3. The restore, and what became of it.
    const RequestOutcome outcome = RestoreFrom(backup.stored.file->Path(), scope, word, unlock);
    ExpectResult(outcome.result);
    ExpectToHaveRun(outcome.operation);
    const auto left =
        CompareWithMachine(backup.content, TakeSnapshot(scope, word).content, scope.modules);
    const bool areAllGood = AddStates(StatesOfImport(outcome, backup.content, left), report);
    AddDifferences(left, report);
    if (areAllGood && left.empty() && outcome.operation.succeeded) return report;

    // 4. What failed is told, and undone where that was asked for.
    report.exitCode = ExitCode::kNotGood;
    report.error = WideToUtf8(FormatWide(kNotAsInFile, file.c_str()));
    if (words.goesBack) {
        const bool isBack = GoBack(before, scope, word, unlock);
        report.facts["rolled_back"] = isBack;
        report.error += std::string("; ") + (isBack ? kWentBack : kNotBack);
        if (isBack) return report;
    }
    report.text += WayBack(safety);
    return report;
}
