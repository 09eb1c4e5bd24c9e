#include "admin/overview.h"

#include <algorithm>
#include <cstdio>

namespace {

// The longest name of a module is that of the user section.
constexpr const char* kRow = "  %-18s %8s %9s  %s\n";

std::string Row(const char* name, const std::string& values, const std::string& isProtected,
                const char* state) {
    char row[128];
    std::snprintf(row, sizeof row, kRow, name, values.c_str(), isProtected.c_str(), state);
    std::string text = row;
    text.erase(text.find_last_not_of(" \n") + 1);
    return text + "\n";
}

std::string Listed(const char* title, const std::vector<std::string>& names) {
    std::string line;
    for (const std::string& name : names) {
        line.append(line.empty() ? title : ", ").append(Shown(Utf8ToWide(name)));
    }
    return names.empty() ? line : line + "\n";
}

}  // namespace

Overview::Overview(const WString& file, const StoredBackup& backup, const BackupContent& content)
    : content_(content), file_(Shown(file)) {
    report_.facts["file"] = WideToUtf8(file);
    report_.facts["form"] = NameOf(backup.form);
    report_.facts["header"] = nlohmann::ordered_json::object();
    table_ = std::string("  stored: ") + NameOf(backup.form) + "\n";
    for (const auto& [name, text] : content.header) {
        report_.facts["header"][name] = text;
        if (!text.empty()) table_ += "  " + name + ": " + Shown(Utf8ToWide(text)) + "\n";
    }
    report_.facts["modules"] = nlohmann::ordered_json::array();
    table_ += "\n" + Row("module", "values", "protected", "");
}

nlohmann::ordered_json& Overview::AddModule(const std::string& name, ValueCount count,
                                            const char* state) {
    table_ +=
        Row(name.c_str(), std::to_string(count.all), std::to_string(count.isProtected), state);
    auto& modules = report_.facts["modules"];
    modules.push_back({{"name", name}, {"values", count.all}, {"protected", count.isProtected}});
    if (*state != '\0') modules.back()["state"] = state;
    return modules.back();
}

Report Overview::Finish(ExitCode exitCode, const std::string& verdict, const std::string& lines) {
    report_.exitCode = exitCode;
    report_.facts["missing"] = content_.missing;
    report_.facts["unknown"] = content_.unknown;
    report_.text = file_ + (verdict.empty() ? "" : ": " + verdict) + "\n" + table_ +
                   Listed("not in the file: ", content_.missing) +
                   Listed("not read by a restore: ", content_.unknown) + lines;
    return std::move(report_);
}
