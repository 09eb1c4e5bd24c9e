#include "tests/support/capabilities.h"

#include <unistd.h>

#include "tests/support/process.h"

namespace {

bool IsInBuild(const std::string& name) {
    return std::filesystem::exists(ProgramFolder() / name);
}

}  // namespace

bool TargetHas(const std::string& capability) {
    if (capability == kAdministrator || capability == kOtherAccounts) return geteuid() == 0;
    if (capability == kFullDisk) return access("/dev/full", W_OK) == 0;
    if (capability == kFipsModule) return IsInBuild("fipsmodule.cnf");
    return capability != kInstaller;
}
