// The installed client's version, found through the client's upgrade codes.
#include "install/installed_version.h"

#include "tests/support/installed_product.h"
#include "tests/support/machine.h"

namespace {

using InstalledVersion = MachineTest;

// The four numbers, and whether they count.
std::string Read() {
    std::int32_t n[4] = {-1, -1, -1, -1};
    std::string text = ReadInstalledVersion(&n[0], &n[1], &n[2], &n[3]) ? "found" : "none";
    for (const std::int32_t number : n) text.append(" ").append(std::to_string(number));
    return text;
}

TEST_F(InstalledVersion, ComesFromTheFirstCodeThatHasOneWhateverItsText) {
    EXPECT_EQ(Read(), "none -1 -1 -1 -1");
    InstallProduct(kThirdUpgradeCode, kSomeProduct, TEXT("5.0"));
    EXPECT_EQ(Read(), "found 5 0 0 0");
    InstallProduct(kSecondUpgradeCode, kOtherProduct, TEXT("6.1.2.3"));
    EXPECT_EQ(Read(), "found 6 1 2 3");
    EXPECT_TRUE(ReadInstalledVersion(nullptr, nullptr, nullptr, nullptr));
    for (const auto& [version, expected] : {std::pair(TEXT("7.4.3.1790"), "found 7 4 3 1790"),
                                            {TEXT("7.4"), "found 7 4 0 0"},
                                            {TEXT("..7..4x.3.2.1"), "found 7 4 3 2"},
                                            {TEXT("0.9.1.2"), "none 0 9 1 2"},
                                            {TEXT("beta"), "none 0 0 0 0"}}) {
        InstallProduct(kFirstUpgradeCode, kSomeProduct, version);
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
