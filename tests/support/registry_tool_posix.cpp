#include "tests/support/registry_tool.h"

std::string RegistryTool() {
    return "snreg";
}
