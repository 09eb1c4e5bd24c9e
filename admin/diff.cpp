#include "admin/commands.h"
#include "admin/comparison.h"
#include "admin/judgement.h"

namespace {

Report Tell(const WString& first, const WString& second,
            const std::vector<Difference>& differences) {
    Report report;
    report.exitCode = differences.empty() ? ExitCode::kGood : ExitCode::kNotGood;
    report.facts["first"] = WideToUtf8(first);
    report.facts["second"] = WideToUtf8(second);
    report.facts["differences"] = nlohmann::ordered_json::array();
    for (const Difference& difference : differences) {
        report.facts["differences"].push_back(FactOf(difference));
        report.text += LineOf(difference) + "\n";
    }
    if (differences.empty()) report.text = "no difference\n";
    return report;
}

}  // namespace

Report Diff(const WString& first, const WString& second, PasswordSource& firstPassword,
            PasswordSource& secondPassword) {
    const JudgedBackup before = OpenGoodBackup(first, firstPassword);
    const JudgedBackup after = OpenGoodBackup(second, secondPassword);
    return Tell(first, second, Compare(before.content, after.content));
}

Report DiffLive(const WString& file, const MachineScope& scope, PasswordSource& password) {
    const JudgedBackup backup = OpenGoodBackup(file, password);
    MachineScope same = scope;
    same.hasUser = HasUserSection(backup.content);
    const Snapshot machine = TakeSnapshot(same, password.Get());
    return Tell(file, TEXT(""), CompareWithMachine(backup.content, machine.content, scope.modules));
}
