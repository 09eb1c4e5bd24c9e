#include <windows.h>
// (after the types)
#include <msi.h>
#include <shlwapi.h>

#include <string>

#include "tests/support/machine.h"
#include "tests/support/registry_tool.h"

namespace {

using Text = std::basic_string<WCHAR>;

constexpr WCHAR kUpgradeCode[] = TEXT("{57EBBD74-370A-428A-B3C9-EE593BF91587}");
constexpr WCHAR kProduct[] = TEXT("{01234567-89AB-CDEF-0123-456789ABCDEF}");
constexpr WCHAR kOtherProduct[] = TEXT("{BEC507E1-E437-47E5-82C4-E1B20F8FC64F}");

// The records of an installed product, as a registry file for every system: the codes stand there
// in the installer's own form.
constexpr char kRecords[] = R"(Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\Installer\UpgradeCodes\47DBBE75A073A8243B9CEE95B39F5178]
"76543210BA98FEDC1032547698BADCFE"=""
"1E705CEB734E5E74284C1E2BF0F86CF4"=""

[HKEY_LOCAL_MACHINE\SOFTWARE\Classes\Installer\Products\76543210BA98FEDC1032547698BADCFE]
"ProductName"="Sentrel"
"Version"=dword:07040003

[HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\Installer\UserData\S-1-5-18\Products\76543210BA98FEDC1032547698BADCFE\InstallProperties]
"DisplayVersion"="7.4.3.1790"

[HKEY_LOCAL_MACHINE\SOFTWARE\Classes\Installer\Products\1E705CEB734E5E74284C1E2BF0F86CF4]
"ProductName"="Known, not installed"
)";
constexpr char kRemoval[] = R"(Windows Registry Editor Version 5.00

[-HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\Installer\UpgradeCodes\47DBBE75A073A8243B9CEE95B39F5178]
[-HKEY_LOCAL_MACHINE\SOFTWARE\Classes\Installer\Products\76543210BA98FEDC1032547698BADCFE]
[-HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows\CurrentVersion\Installer\UserData\S-1-5-18\Products\76543210BA98FEDC1032547698BADCFE]
[-HKEY_LOCAL_MACHINE\SOFTWARE\Classes\Installer\Products\1E705CEB734E5E74284C1E2BF0F86CF4]
)";

class Installer : public MachineTest {
  protected:
    void ImportText(const char* text) {
        const auto file = ScratchFolder() / "records.reg";
        WriteWholeFile(file, text);
        const ProcessResult result = RunProgram(RegistryTool(), {"import", file.string()});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
    }
    void TearDown() override { ImportText(kRemoval); }
};

struct Answer {
    UINT result;
    Text text;
    DWORD length;
};

Answer Related(const WCHAR* upgradeCode, DWORD index) {
    WCHAR product[39] = {};
    const UINT result = MsiEnumRelatedProductsW(upgradeCode, 0, index, product);
    return {result, product, 0};
}

Answer Info(const WCHAR* product, const WCHAR* property, DWORD capacity = 260) {
    WCHAR text[260] = {};
    const UINT result = MsiGetProductInfoW(product, property, text, &capacity);
    return {result, result == ERROR_SUCCESS ? text : TEXT(""), capacity};
}

constexpr UINT kOk = ERROR_SUCCESS;
constexpr UINT kMore = ERROR_MORE_DATA;
constexpr UINT kNoMore = ERROR_NO_MORE_ITEMS;
constexpr UINT kBadParameter = ERROR_INVALID_PARAMETER;
constexpr UINT kNoProduct = ERROR_UNKNOWN_PRODUCT;
constexpr UINT kNoProperty = ERROR_UNKNOWN_PROPERTY;

TEST_F(Installer, FindsProductsByTheirUpgradeCode) {
    EXPECT_EQ(Related(kUpgradeCode, 0).result, kNoMore);
    ASSERT_NO_FATAL_FAILURE(ImportText(kRecords));
    EXPECT_EQ(Related(kUpgradeCode, 0).result, kOk);
    EXPECT_EQ(Related(kUpgradeCode, 0).text, kProduct);
    EXPECT_EQ(Related(TEXT("{57ebbd74-370a-428a-b3c9-ee593bf91587}"), 1).text, kOtherProduct);
    EXPECT_EQ(Related(kUpgradeCode, 2).result, kNoMore);
    EXPECT_EQ(Related(kProduct, 0).result, kNoMore);
    EXPECT_EQ(Related(TEXT("{57EBBD74-370A-428A-B3C9-EE593BF9158}"), 0).result, kBadParameter);
    EXPECT_EQ(Related(TEXT("[57EBBD74-370A-428A-B3C9-EE593BF91587]"), 0).result, kBadParameter);
    EXPECT_EQ(Related(nullptr, 0).result, kBadParameter);
}

TEST_F(Installer, TellsNameAndVersionOfAProduct) {
    ASSERT_NO_FATAL_FAILURE(ImportText(kRecords));
    const Answer version = Info(kProduct, INSTALLPROPERTY_VERSIONSTRING);
    EXPECT_EQ(version.result, kOk);
    EXPECT_EQ(version.text, TEXT("7.4.3.1790"));
    EXPECT_EQ(version.length, 10u);
    EXPECT_EQ(Info(kProduct, INSTALLPROPERTY_VERSIONSTRING, 11).result, kOk);
    EXPECT_EQ(Info(kProduct, INSTALLPROPERTY_VERSIONSTRING, 10).result, kMore);
    EXPECT_EQ(Info(kProduct, INSTALLPROPERTY_VERSIONSTRING, 10).length, 10u);
    EXPECT_EQ(Info(kProduct, INSTALLPROPERTY_PRODUCTNAME).text, TEXT("Sentrel"));
    EXPECT_EQ(Info(kProduct, TEXT("NoSuchProperty")).result, kNoProperty);
    EXPECT_EQ(Info(kOtherProduct, INSTALLPROPERTY_VERSIONSTRING).result, kNoProperty);
    EXPECT_EQ(Info(kUpgradeCode, INSTALLPROPERTY_VERSIONSTRING).result, kNoProduct);
    DWORD length = 0;
    EXPECT_EQ(MsiGetProductInfoW(kProduct, INSTALLPROPERTY_VERSIONSTRING, nullptr, &length), kOk);
    EXPECT_EQ(length, 10u);
}

}  // namespace
