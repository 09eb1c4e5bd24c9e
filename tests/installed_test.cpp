// The installed client's version, found through the client's upgrade codes.
#include "install/installed_version.h"

#include "common/text.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"

namespace {

using InstalledVersion = MachineTest;

// Two of the client's upgrade codes and two products, in the installer's packed form.
const WString kFirstCode = TEXT("47DBBE75A073A8243B9CEE95B39F5178");
const WString kSecondCode = TEXT("1E705CEB734E5E74284C1E2BF0F86CF4");
const WString kProduct = TEXT("76543210BA98FEDC1032547698BADCFE");
const WString kOther = TEXT("00000000BA98FEDC1032547698BADCFE");

void Install(const WString& upgradeCode, const WString& product, const WString& version) {
    const WString installer = TEXT("SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer\\");
    const WString properties =
        installer + TEXT("UserData\\S-1-5-18\\Products\\") + product + TEXT("\\InstallProperties");
    SetRaw(HKEY_LOCAL_MACHINE, installer + TEXT("UpgradeCodes\\") + upgradeCode, product.c_str(),
           TEXT(""));
    SetRaw(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Classes\\Installer\\Products\\") + product,
           TEXT("ProductName"), TEXT("Sentrel"));
    SetRaw(HKEY_LOCAL_MACHINE, properties, TEXT("DisplayVersion"), version);
}

// The four numbers, and whether they count.
std::string Read() {
    std::int32_t n[4] = {-1, -1, -1, -1};
    std::string text = ReadInstalledVersion(&n[0], &n[1], &n[2], &n[3]) ? "found" : "none";
    for (const std::int32_t number : n) text.append(" ").append(std::to_string(number));
    return text;
}

TEST_F(InstalledVersion, ComesFromTheFirstCodeThatHasOneWhateverItsText) {
    EXPECT_EQ(Read(), "none -1 -1 -1 -1");
    Install(kSecondCode, kOther, TEXT("6.1.2.3"));
    EXPECT_EQ(Read(), "found 6 1 2 3");
    EXPECT_TRUE(ReadInstalledVersion(nullptr, nullptr, nullptr, nullptr));
    for (const auto& [version, expected] : {std::pair(TEXT("7.4.3.1790"), "found 7 4 3 1790"),
                                            {TEXT("7.4"), "found 7 4 0 0"},
                                            {TEXT("..7..4x.3.2.1"), "found 7 4 3 2"},
                                            {TEXT("0.9.1.2"), "none 0 9 1 2"},
                                            {TEXT("beta"), "none 0 0 0 0"}}) {
        Install(kFirstCode, kProduct, version);
        EXPECT_EQ(Read(), expected);
    }
}

TEST_F(InstalledVersion, IsThatOfAnInstalledPackage) {
    SKIP_WITHOUT(kInstaller);
    const std::string package = (ProgramFolder() / "client.msi").make_preferred().string();
    for (const auto& [action, installed] : {std::pair("/i", "found 7 4 3 1790"),  //
                                            std::pair("/x", "none -1 -1 -1 -1")}) {
        const ProcessResult run =
            RunProgram("C:\\windows\\system32\\msiexec", {action, package, "/qn"});
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_EQ(Read(), installed);
    }
}

}  // namespace
