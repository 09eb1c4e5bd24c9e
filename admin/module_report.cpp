#include "admin/module_report.h"

#include <algorithm>

#include "common/format.h"

namespace {

const char* StateOf(const ModuleOutcome& outcome, const BackupContent& content) {
    if (!outcome.isLibraryFound || !outcome.isFunctionFound) return "plug-in missing";
    if (outcome.hasFailed) return "failed";
    const std::string name = WideToUtf8(outcome.module);
    const auto module = std::ranges::find(content.modules, name, &ContentModule::name);
    if (module == content.modules.end()) return "failed";
    return module->values.empty() ? "empty" : "exported";
}

constexpr std::size_t kStateColumn = 20;  // behind the longest name of a module

struct ObstacleRow {
    ExitCode exitCode;
    const WCHAR* text;
};
// In the order of Obstacle.
constexpr ObstacleRow kObstacles[] = {
    {ExitCode::kGood, TEXT("")},
    {ExitCode::kRefused, TEXT("the request was refused")},
    {ExitCode::kRefused, TEXT("backups are disabled on this machine")},
    {ExitCode::kUsage, TEXT("a password is needed")},
    {ExitCode::kInaccessible, TEXT("no temporary file can be made")},
    {ExitCode::kRefused, TEXT("the crypto service did not take the change")},
};

}  // namespace

std::vector<ModuleState> StatesOfExport(const OperationOutcome& outcome,
                                        const BackupContent& content) {
    std::vector<ModuleState> states;
    for (const ModuleOutcome& module : outcome.modules) {
        const std::string state = StateOf(module, content);
        states.push_back(
            {WideToUtf8(module.module), state, state == "exported" || state == "empty"});
    }
    return states;
}

bool AddStates(const std::vector<ModuleState>& states, Report& report) {
    report.facts["modules"] = nlohmann::ordered_json::array();
    for (const auto& [module, state, isGood] : states) {
        report.facts["modules"].push_back({{"name", module}, {"state", state}});
        report.text.append("  ").append(module);
        report.text.append(kStateColumn - std::min(module.size(), kStateColumn - 1), ' ');
        report.text.append(state).append("\n");
    }
    return std::ranges::all_of(states, &ModuleState::isGood);
}

void ExpectToHaveRun(const OperationOutcome& outcome) {
    if (outcome.obstacle == Obstacle::kNone) return;
    const auto& [exitCode, text] = kObstacles[static_cast<std::size_t>(outcome.obstacle)];
    throw Failure(exitCode, text);
}
