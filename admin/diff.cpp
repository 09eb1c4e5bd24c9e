#include "admin/commands.h"
#include "admin/comparison.h"
#include "admin/judgement.h"

Report Diff(const WString& first, const WString& second, PasswordSource& firstPassword,
            PasswordSource& secondPassword) {
    const JudgedBackup before = OpenGoodBackup(first, firstPassword);
    const JudgedBackup after = OpenGoodBackup(second, secondPassword);
    const std::vector<Difference> differences = Compare(before.content, after.content);

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
