#include "tests/support/capabilities.h"

#include <unistd.h>

bool TargetHas(const std::string& capability) {
    if (capability == kAdministrator || capability == kOtherAccounts) return geteuid() == 0;
    if (capability == kFullDisk) return access("/dev/full", W_OK) == 0;
    return capability != kInstaller;
}
