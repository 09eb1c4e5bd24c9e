#include <msi.h>
#include <winerror.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "registry_keys.h"

using namespace platform;

namespace {

constexpr WCHAR kUpgradeCodes[] =
    TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\Installer\\UpgradeCodes\\");
constexpr WCHAR kProducts[] = TEXT("Software\\Classes\\Installer\\Products\\");
constexpr WCHAR kInstalled[] =
    TEXT("Software\\Microsoft\\Windows\\CurrentVersion\\Installer\\UserData\\S-1-5-18\\Products\\");
constexpr WCHAR kInstallProperties[] = TEXT("\\InstallProperties");

constexpr std::u16string_view kGuidForm = u"{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}";
constexpr std::size_t kDigits = 32;
// The registry's form of a code turns the digits of each of these groups round.
constexpr std::size_t kGroups[] = {8, 4, 4, 2, 2, 2, 2, 2, 2, 2, 2};

bool IsDigit(char16_t unit) {
    return (unit >= u'0' && unit <= u'9') || (unit >= u'A' && unit <= u'F') ||
           (unit >= u'a' && unit <= u'f');
}

void TurnGroups(std::u16string& digits) {
    auto group = digits.begin();
    for (const std::size_t size : kGroups) {
        std::reverse(group, group + static_cast<std::ptrdiff_t>(size));
        group += static_cast<std::ptrdiff_t>(size);
    }
}

// The 32 digits that stand for a braced GUID in the registry; nothing for what is none.
std::optional<std::u16string> PackCode(LPCWSTR code) {
    const std::u16string_view text = code == nullptr ? std::u16string_view() : code;
    if (text.size() != kGuidForm.size()) return std::nullopt;
    std::u16string digits;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool digit = kGuidForm[i] == u'X';
        if (digit ? !IsDigit(text[i]) : text[i] != kGuidForm[i]) return std::nullopt;
        if (digit) digits += text[i];
    }
    TurnGroups(digits);
    return digits;
}

// The GUID of a packed code; nothing for what is no code.
std::optional<std::u16string> UnpackCode(std::u16string digits) {
    if (digits.size() != kDigits || !std::all_of(digits.begin(), digits.end(), IsDigit)) {
        return std::nullopt;
    }
    TurnGroups(digits);
    std::u16string code(kGuidForm);
    auto digit = digits.begin();
    for (char16_t& unit : code) {
        if (unit == u'X') unit = *digit++;
    }
    return code;
}

// A text of a key of the installer's records, empty when the key has none of this name. Nothing
// when there is no such key.
std::optional<std::u16string> TextOf(const std::u16string& path, const WCHAR* name) {
    HiveValue value;
    bool isThere = false;
    Report([&] {
        const KeyPlace key = Find(Locate(HKEY_LOCAL_MACHINE, path.c_str()));
        isThere = true;
        value = key.hive->Read(key.id, name);
    });
    if (!isThere) return std::nullopt;
    if (value.type != REG_SZ && value.type != REG_EXPAND_SZ) return u"";
    std::u16string text(value.data.size() / sizeof(WCHAR), u'\0');
    std::memcpy(text.data(), value.data.data(), text.size() * sizeof(WCHAR));
    return text.substr(0, text.find(u'\0'));
}

UINT DeliverText(const std::u16string& text, LPWSTR buffer, LPDWORD capacity) {
    if (capacity == nullptr) return buffer == nullptr ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
    const bool fits = text.size() < *capacity;
    *capacity = static_cast<DWORD>(text.size());
    if (buffer == nullptr) return ERROR_SUCCESS;
    if (!fits) return ERROR_MORE_DATA;
    *std::copy(text.begin(), text.end(), buffer) = 0;
    return ERROR_SUCCESS;
}

}  // namespace

extern "C" {

UINT WINAPI MsiEnumRelatedProductsW(LPCWSTR lpUpgradeCode, DWORD dwReserved, DWORD iProductIndex,
                                    LPWSTR lpProductBuf) {
    const auto upgrade = PackCode(lpUpgradeCode);
    if (!upgrade || dwReserved != 0 || lpProductBuf == nullptr) return ERROR_INVALID_PARAMETER;
    std::u16string name;
    const LSTATUS result = Report([&] {
        const KeyPlace key = Find(Locate(HKEY_LOCAL_MACHINE, (kUpgradeCodes + *upgrade).c_str()));
        name = key.hive->ValueAt(key.id, iProductIndex).name;
    });
    if (result == ERROR_NO_MORE_ITEMS || result == ERROR_FILE_NOT_FOUND) return ERROR_NO_MORE_ITEMS;
    const auto product = UnpackCode(name);
    if (!product) return ERROR_BAD_CONFIGURATION;
    *std::copy(product->begin(), product->end(), lpProductBuf) = 0;
    return ERROR_SUCCESS;
}

UINT WINAPI MsiGetProductInfoW(LPCWSTR szProduct, LPCWSTR szAttribute, LPWSTR lpValueBuf,
                               LPDWORD pcchValueBuf) {
    const auto code = PackCode(szProduct);
    if (!code || szAttribute == nullptr || (lpValueBuf != nullptr && pcchValueBuf == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto name = TextOf(kProducts + *code, INSTALLPROPERTY_PRODUCTNAME);
    if (!name) return ERROR_UNKNOWN_PRODUCT;
    const std::u16string_view property = szAttribute;
    if (property == INSTALLPROPERTY_PRODUCTNAME) {
        return DeliverText(*name, lpValueBuf, pcchValueBuf);
    }
    if (property != INSTALLPROPERTY_VERSIONSTRING) return ERROR_UNKNOWN_PROPERTY;
    const auto version = TextOf(kInstalled + *code + kInstallProperties, TEXT("DisplayVersion"));
    return version ? DeliverText(*version, lpValueBuf, pcchValueBuf) : ERROR_UNKNOWN_PROPERTY;
}
}
