// The installed client's version, found through the client's upgrade codes.
#include "install/installed_version.h"

#include "tests/support/machine.h"
#include "tests/support/registry.h"

namespace {

using WideText = std::basic_string<WCHAR>;

// Two of the client's upgrade codes and two products, in the installer's packed form.
const WideText kFirstCode = TEXT("47DBBE75A073A8243B9CEE95B39F5178");
const WideText kSecondCode = TEXT("1E705CEB734E5E74284C1E2BF0F86CF4");
const WideText kProduct = TEXT("76543210BA98FEDC1032547698BADCFE");
const WideText kOther = TEXT("00000000BA98FEDC1032547698BADCFE");

void Install(const WideText& upgradeCode, const WideText& product, const WideText& version) {
    const WideText installer = TEXT("SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Installer\\");
    SetRaw(HKEY_LOCAL_MACHINE, installer + TEXT("UpgradeCodes\\") + upgradeCode, product.c_str(),
           TEXT(""));
    SetRaw(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Classes\\Installer\\Products\\") + product,
           TEXT("ProductName"), TEXT("Sentrel"));
    SetRaw(
        HKEY_LOCAL_MACHINE,
        installer + TEXT("UserData\\S-1-5-18\\Products\\") + product + TEXT("\\InstallProperties"),
        TEXT("DisplayVersion"), version);
}

class InstalledVersion : public MachineTest {
  protected:
    // The four numbers, and whether they count.
    std::string Read() {
        std::int32_t n[4] = {-1, -1, -1, -1};
        const bool found = ReadInstalledVersion(&n[0], &n[1], &n[2], &n[3]);
        std::string text = found ? "found" : "none";
        for (const std::int32_t number : n) text.append(" ").append(std::to_string(number));
        return text;
    }
};

TEST_F(InstalledVersion, ComesFromTheFirstCodeThatHasOne) {
    EXPECT_EQ(Read(), "none -1 -1 -1 -1");
    Install(kSecondCode, kOther, TEXT("6.1.2.3"));
    EXPECT_EQ(Read(), "found 6 1 2 3");
    Install(kFirstCode, kProduct, TEXT("7.4.3.1790"));
    EXPECT_EQ(Read(), "found 7 4 3 1790");
    EXPECT_TRUE(ReadInstalledVersion(nullptr, nullptr, nullptr, nullptr));
}

TEST_F(InstalledVersion, SplitsWhateverTextThereIs) {
    const std::pair<const WCHAR*, const char*> cases[] = {
        {TEXT("7.4"), "found 7 4 0 0"},
        {TEXT("..7..4x.3.2.1"), "found 7 4 3 2"},
        {TEXT("0.9.1.2"), "none 0 9 1 2"},
        {TEXT("beta"), "none 0 0 0 0"},
    };
    for (const auto& [version, expected] : cases) {
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
