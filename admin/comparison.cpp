#include "admin/comparison.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>

namespace {

// The place of a value, its names compared exactly or as the registry compares them.
WString ExactPlace(const ContentValue& value) {
    return value.key + WCHAR{0} + value.name;
}
struct LessPlace {
    bool operator()(const ContentValue* a, const ContentValue* b) const {
        const LessIgnoringCase less;
        if (less(a->key, b->key)) return true;
        return !less(b->key, a->key) && less(a->name, b->name);
    }
};
// A value that stands twice counts as it stands last, as for a restore.
using ExactMap = std::unordered_map<WString, const ContentValue*>;
using PlaceSet = std::set<const ContentValue*, LessPlace>;

ExactMap MapOf(const ContentModule& module) {
    ExactMap map(module.values.size());
    for (const ContentValue& value : module.values) map[ExactPlace(value)] = &value;
    return map;
}

// The values of a module whose place the other one does not have exactly so.
PlaceSet Unmatched(const ContentModule& module, const ExactMap& own, const ExactMap& other) {
    PlaceSet unmatched;
    for (const ContentValue& value : module.values) {
        const WString place = ExactPlace(value);
        if (other.contains(place) || own.at(place) != &value) continue;
        unmatched.erase(&value);
        unmatched.insert(&value);
    }
    return unmatched;
}

bool AreEqual(const ContentValue& a, const ContentValue& b) {
    return a.type == b.type && a.isProtected == b.isProtected && a.data == b.data;
}

void CompareModules(const ContentModule& first, const ContentModule& second,
                    std::vector<Difference>& differences) {
    const ExactMap before = MapOf(first);
    const ExactMap after = MapOf(second);
    const auto add = [&](Change change, const ContentValue& value) {
        differences.push_back({change, first.name, value.key, value.name});
    };
    // Nearly all names are spelled the same: those that are not are few.
    const PlaceSet onlyBefore = Unmatched(first, before, after);
    const PlaceSet onlyAfter = Unmatched(second, after, before);
    for (const ContentValue& value : first.values) {
        const WString place = ExactPlace(value);
        if (before.at(place) != &value) continue;
        if (const auto same = after.find(place); same != after.end()) {
            if (!AreEqual(value, *same->second)) add(Change::kChanged, value);
        } else if (const auto found = onlyAfter.find(&value); found == onlyAfter.end()) {
            add(Change::kOnlyInFirst, value);
        } else if (!AreEqual(value, **found)) {
            add(Change::kChanged, value);
        }
    }
    for (const ContentValue* value : onlyAfter) {
        if (!onlyBefore.contains(value)) add(Change::kOnlyInSecond, *value);
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
