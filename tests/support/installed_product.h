// A product as the installer notes it.
#pragma once

#include "common/text.h"
#include "tests/support/registry.h"

// The client's upgrade codes and two products, in the installer's packed form.
inline constexpr const WCHAR* kFirstUpgradeCode = TEXT("47DBBE75A073A8243B9CEE95B39F5178");
inline constexpr const WCHAR* kSecondUpgradeCode = TEXT("1E705CEB734E5E74284C1E2BF0F86CF4");
inline constexpr const WCHAR* kThirdUpgradeCode = TEXT("1611AB8FF360E7945A94412FBD2F2E46");
inline constexpr const WCHAR* kSomeProduct = TEXT("76543210BA98FEDC1032547698BADCFE");
inline constexpr const WCHAR* kOtherProduct = TEXT("00000000BA98FEDC1032547698BADCFE");

inline void InstallProduct(const WString& upgradeCode, const WString& product,
                           const WString& version) {
    const WString installer = TEXT("SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer\\");
    const WString properties =
        installer + TEXT("UserData\\S-1-5-18\\Products\\") + product + TEXT("\\InstallProperties");
    SetRaw(HKEY_LOCAL_MACHINE, installer + TEXT("UpgradeCodes\\") + upgradeCode, product.c_str(),
           TEXT(""));
    SetRaw(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Classes\\Installer\\Products\\") + product,
           TEXT("ProductName"), TEXT("Sentrel"));
    SetRaw(HKEY_LOCAL_MACHINE, properties, TEXT("DisplayVersion"), version);
}
