#include "admin/commands.h"
#include "admin/comparison.h"
#include "admin/judgement.h"

namespace {

std::string Line(const Difference& difference) {
    // In the order of Change.
    constexpr const char* kChanges[] = {"only in the first", "only in the second", "changed"};
    std::string line = std::string(kChanges[static_cast<std::size_t>(difference.change)]) + ": " +
                       difference.module;
    if (difference.isModule) return line + "\n";
    if (!difference.key.empty()) line += "\\" + Shown(difference.key);
    return line + " " + (difference.name.empty() ? "(default)" : Shown(difference.name)) + "\n";
}

nlohmann::ordered_json Fact(const Difference& difference) {
    nlohmann::ordered_json fact = {{"change", NameOf(difference.change)},
                                   {"module", difference.module}};
    if (!difference.isModule) {
        fact["key"] = WideToUtf8(difference.key);
        fact["name"] = WideToUtf8(difference.name);
    }
    return fact;
}

}  // namespace

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
        report.facts["differences"].push_back(Fact(difference));
        report.text += Line(difference);
    }
    if (differences.empty()) report.text = "no difference\n";
    return report;
}
