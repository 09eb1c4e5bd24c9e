#include "admin/comparison.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace {

// The order of the registry's names.
struct LessPlace {
    bool operator()(const std::pair<WString, WString>& a,
                    const std::pair<WString, WString>& b) const {
        const LessIgnoringCase less;
        if (less(a.first, b.first)) return true;
        return !less(b.first, a.first) && less(a.second, b.second);
    }
};
using ValueMap = std::map<std::pair<WString, WString>, const ContentValue*, LessPlace>;

// A value that stands twice counts as it stands last, as for a restore.
ValueMap MapOf(const ContentModule& module) {
    ValueMap map;
    for (const ContentValue& value : module.values) map[{value.key, value.name}] = &value;
    return map;
}

bool AreEqual(const ContentValue& a, const ContentValue& b) {
    return a.type == b.type && a.isProtected == b.isProtected && a.data == b.data;
}

void CompareModules(const ContentModule& first, const ContentModule& second,
                    std::vector<Difference>& differences) {
    const ValueMap before = MapOf(first);
    const ValueMap after = MapOf(second);
    const auto add = [&](Change change, const ContentValue& value) {
        differences.push_back({change, first.name, value.key, value.name});
    };
    for (const auto& [place, value] : before) {
        const auto found = after.find(place);
        if (found == after.end()) {
            add(Change::kOnlyInFirst, *value);
        } else if (!AreEqual(*value, *found->second)) {
            add(Change::kChanged, *value);
        }
    }
    for (const auto& [place, value] : after) {
        if (!before.contains(place)) add(Change::kOnlyInSecond, *value);
    }
}

using KeySet = std::set<WString, LessIgnoringCase>;

// Whether a restore leaves alone what a key holds beyond the file: the nearest key to it that the
// file has is merged.
bool IsMerged(const Feature& feature, const KeySet& keysOfFile, WString key) {
    while (!key.empty() && !keysOfFile.contains(key)) {
        const std::size_t end = key.find_last_of(TEXT('\\'));
        key = end == WString::npos ? WString() : key.substr(0, end);
    }
    return HasSections(feature, key);
}

const ContentModule* Find(const BackupContent& content, const std::string& name) {
    const auto found = std::ranges::find(content.modules, name, &ContentModule::name);
    return found == content.modules.end() ? nullptr : &*found;
}

}  // namespace

const char* NameOf(Change change) {
    constexpr const char* kNames[] = {"only_in_first", "only_in_second", "changed"};
    return kNames[static_cast<std::size_t>(change)];
}

std::vector<Difference> Compare(const BackupContent& first, const BackupContent& second) {
    std::vector<Difference> differences;
    const auto onlyIn = [&](Change change, const ContentModule& module) {
        differences.push_back({change, module.name, {}, {}, true});
    };
    for (const ContentModule& module : first.modules) {
        if (const ContentModule* const other = Find(second, module.name)) {
            CompareModules(module, *other, differences);
        } else {
            onlyIn(Change::kOnlyInFirst, module);
        }
    }
    for (const ContentModule& module : second.modules) {
        if (Find(first, module.name) == nullptr) onlyIn(Change::kOnlyInSecond, module);
    }
    return differences;
}

std::vector<Difference> CompareWithMachine(const BackupContent& file, const BackupContent& machine,
                                           const std::vector<std::string>& modules) {
    std::vector<Difference> differences = Compare(file, machine);
    std::map<std::string, KeySet> keys;
    for (const ContentModule& module : file.modules) {
        keys[module.name] = {module.keys.begin(), module.keys.end()};
    }
    std::erase_if(differences, [&](const Difference& difference) {
        const ContentModule* const module = Find(file, difference.module);
        if (module == nullptr) return true;  // the machine has more modules than the file
        const bool isUser = module->feature == nullptr;
        if (!isUser && !modules.empty() &&
            std::ranges::find(modules, difference.module) == modules.end()) {
            return true;
        }
        if (difference.change != Change::kOnlyInSecond) return false;
        return isUser || IsMerged(*module->feature, keys[difference.module], difference.key);
    });
    return differences;
}

std::string LineOf(const Difference& difference) {
    // In the order of Change.
    constexpr const char* kChanges[] = {"only in the first", "only in the second", "changed"};
    std::string line = std::string(kChanges[static_cast<std::size_t>(difference.change)]) + ": " +
                       difference.module;
    if (difference.isModule) return line;
    if (!difference.key.empty()) line += "\\" + Shown(difference.key);
    return line + " " + (difference.name.empty() ? "(default)" : Shown(difference.name));
}

nlohmann::ordered_json FactOf(const Difference& difference) {
    nlohmann::ordered_json fact = {{"change", NameOf(difference.change)},
                                   {"module", difference.module}};
    if (!difference.isModule) {
        fact["key"] = WideToUtf8(difference.key);
        fact["name"] = WideToUtf8(difference.name);
    }
    return fact;
}
