#include "tests/support/capabilities.h"

// The others, as far as Wine goes, are not to be had.
bool TargetHas(const std::string& capability) {
    return capability == kInstaller || capability == kAdministrator || capability == kFipsModule;
}
