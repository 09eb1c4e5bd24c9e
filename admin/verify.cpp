#include <algorithm>

#include "admin/commands.h"
#include "admin/judgement.h"
#include "admin/overview.h"

namespace {

// In the order of Verifier.
constexpr const char* kVerifiers[] = {"none", "good", "wrong"};

const char* StateOf(const ContentModule& module) {
    if (!module.damaged.empty()) return "damaged";
    return module.values.empty() ? "empty" : "good";
}

std::string Place(const ContentModule& module, const UnreadableValue& value) {
    return module.name + "\\" + Shown(value.path) + (value.path.empty() ? "" : "\\") +
           Shown(value.name);
}

}  // namespace

Report Verify(const WString& file, PasswordSource& password) {
    const JudgedBackup backup = JudgeBackup(file, password);
    Overview overview(file, backup.stored, backup.content);
    overview.SetFact("verifier", kVerifiers[static_cast<std::size_t>(backup.content.verifier)]);
    std::string damage;
    for (const ContentModule& module : backup.content.modules) {
        const auto isProtected = static_cast<std::size_t>(
            std::ranges::count_if(module.values, &ContentValue::isProtected));
        auto& row =
            overview.AddModule(module.name, {module.values.size(), isProtected}, StateOf(module));
        row["damaged"] = nlohmann::ordered_json::array();
        for (const UnreadableValue& value : module.damaged) {
            row["damaged"].push_back(
                {{"key", WideToUtf8(value.path)}, {"name", WideToUtf8(value.name)}});
            damage += "damaged: " + Place(module, value) + "\n";
        }
    }
    if (backup.content.verifier == Verifier::kWrong) damage += "damaged: the password verifier\n";
    return overview.Finish(backup.isGood ? ExitCode::kGood : ExitCode::kNotGood,
                           backup.isGood ? "good" : "damaged", damage);
}
