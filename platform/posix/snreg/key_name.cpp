#include "key_name.h"

#include <algorithm>

namespace {

struct Root {
    WStringView name;
    WStringView shortName;
    HKEY key;
};

const Root kRoots[] = {
    {TEXT("HKEY_LOCAL_MACHINE"), TEXT("HKLM"), HKEY_LOCAL_MACHINE},
    {TEXT("HKEY_CURRENT_USER"), TEXT("HKCU"), HKEY_CURRENT_USER},
    {TEXT("HKEY_CLASSES_ROOT"), TEXT("HKCR"), HKEY_CLASSES_ROOT},
    {TEXT("HKEY_USERS"), TEXT("HKU"), HKEY_USERS},
};

WCHAR LowerCase(WCHAR unit) {
    return unit >= 'A' && unit <= 'Z' ? static_cast<WCHAR>(unit - 'A' + 'a') : unit;
}

bool IsPath(WStringView path) {
    std::size_t depth = 0;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find(WCHAR{'\\'}), path.size());
        if (end == 0 || end > kLongestKeyName || ++depth > kDeepestKey) return false;
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return true;
}

}  // namespace

bool EqualWithoutCase(WStringView left, WStringView right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](WCHAR a, WCHAR b) { return LowerCase(a) == LowerCase(b); });
}

std::optional<KeyName> ParseKeyName(WStringView text, RootForms forms) {
    const std::size_t end = std::min(text.find(WCHAR{'\\'}), text.size());
    const WStringView rootName = text.substr(0, end);
    WStringView path = text.substr(std::min(end + 1, text.size()));
    while (!path.empty() && path.back() == '\\') path.remove_suffix(1);
    const auto* const root = std::find_if(std::begin(kRoots), std::end(kRoots), [&](const Root& r) {
        return EqualWithoutCase(rootName, r.name) ||
               (forms == RootForms::kLongAndShort && EqualWithoutCase(rootName, r.shortName));
    });
    if (root == std::end(kRoots) || !IsPath(path)) return std::nullopt;
    KeyName name{root->key, WString(path), WString(root->name)};
    if (!path.empty()) (name.full += WCHAR{'\\'}) += path;
    return name;
}
