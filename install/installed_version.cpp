#include "install/installed_version.h"

#include <windows.h>
//
#include <msi.h>

#include <algorithm>
#include <optional>

#include "common/text.h"

namespace {

// Upgrade codes of the client, in the order in which they are looked up. They stay the same from
// one client version to the next.
constexpr const WCHAR* kUpgradeCodes[] = {
    TEXT("{57EBBD74-370A-428A-B3C9-EE593BF91587}"),
    TEXT("{BEC507E1-E437-47E5-82C4-E1B20F8FC64F}"),
    TEXT("{F8BA1161-063F-497E-A549-14F2DBF2E264}"),
    TEXT("{57EBBD74-370A-428A-B3C9-EE593BF91587}"),
};

constexpr std::size_t kProductCodeCapacity = 39;  // a braced GUID and its terminator
constexpr DWORD kVersionCapacity = 260;           // characters

// The version text of the first product with an upgrade code; none when there is no such product
// or it has no version.
std::optional<WString> VersionText(const WCHAR* upgradeCode) {
    WCHAR product[kProductCodeCapacity] = {};
    if (MsiEnumRelatedProductsW(upgradeCode, 0, 0, product) != ERROR_SUCCESS) return std::nullopt;
    WCHAR version[kVersionCapacity] = {};
    DWORD length = kVersionCapacity;
    if (MsiGetProductInfoW(product, TEXT("VersionString"), version, &length) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return WString(version);
}

std::optional<WString> FindVersionText() {
    for (const WCHAR* upgradeCode : kUpgradeCodes) {
        if (auto version = VersionText(upgradeCode)) return version;
    }
    return std::nullopt;
}

}  // namespace

bool ReadInstalledVersion(std::int32_t* major, std::int32_t* minor, std::int32_t* build,
                          std::int32_t* revision) {
    const auto version = FindVersionText();
    if (!version) return false;

    const auto parts = SplitText(*version, TEXT("."));
    std::int32_t numbers[4] = {};
    for (std::size_t i = 0; i < std::min(parts.size(), std::size(numbers)); ++i) {
        numbers[i] = LeadingNumber(parts[i]);
    }

    std::int32_t* const outputs[] = {major, minor, build, revision};
    for (std::size_t i = 0; i < std::size(outputs); ++i) {
        if (outputs[i] != nullptr) *outputs[i] = numbers[i];
    }
    return numbers[0] != 0;
}
