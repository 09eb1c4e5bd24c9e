#include <msi.h>
#include <winerror.h>
#include <winreg.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

// A key of the installer's records, open for reading.
class Record {
  public:
    explicit Record(const std::u16string& path) {
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key_) != ERROR_SUCCESS) {
            key_ = nullptr;
        }
    }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record() {
        if (key_ != nullptr) RegCloseKey(key_);
    }
    explicit operator bool() const { return key_ != nullptr; }
    HKEY get() const { return key_; }

    // A text of the record, empty when it has none of this name.
    std::u16string Text(const WCHAR* name) const {
        DWORD type = 0;
        DWORD size = 0;
        if (RegQueryValueExW(key_, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
            (type != REG_SZ && type != REG_EXPAND_SZ)) {
            return {};
        }
        std::u16string text(size / sizeof(WCHAR) + 1, u'\0');
        size = static_cast<DWORD>(text.size() * sizeof(WCHAR));
        if (RegQueryValueExW(key_, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text.data()),
                             &size) != ERROR_SUCCESS) {
            return {};
        }
        text.resize(std::min<std::size_t>(text.find(u'\0'), size / sizeof(WCHAR)));
        return text;
    }

  private:
    HKEY key_ = nullptr;
};

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
    const Record products(kUpgradeCodes + *upgrade);
    if (!products) return ERROR_NO_MORE_ITEMS;
    WCHAR name[kDigits + 1];
    DWORD length = kDigits + 1;
    const LSTATUS result = RegEnumValueW(products.get(), iProductIndex, name, &length, nullptr,
                                         nullptr, nullptr, nullptr);
    if (result == ERROR_NO_MORE_ITEMS) return ERROR_NO_MORE_ITEMS;
    const auto product = UnpackCode(result == ERROR_SUCCESS ? name : u"");
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
    const Record product(kProducts + *code);
    if (!product) return ERROR_UNKNOWN_PRODUCT;
    const std::u16string_view property = szAttribute;
    if (property == INSTALLPROPERTY_PRODUCTNAME) {
        return DeliverText(product.Text(INSTALLPROPERTY_PRODUCTNAME), lpValueBuf, pcchValueBuf);
    }
    if (property != INSTALLPROPERTY_VERSIONSTRING) return ERROR_UNKNOWN_PROPERTY;
    const Record installed(kInstalled + *code + kInstallProperties);
    if (!installed) return ERROR_UNKNOWN_PROPERTY;
    return DeliverText(installed.Text(TEXT("DisplayVersion")), lpValueBuf, pcchValueBuf);
}
}
