#include <stdlib.h>

#include "tests/support/machine_port.h"

namespace fs = std::filesystem;

void MakeFreshMachine() {}

void NameEndpoint(const fs::path& endpoint) {
    SetVariable("SENTREL_ENDPOINT", endpoint.string());
}

void LinkFile(const fs::path& file, const fs::path& name) {
    fs::create_symlink(file, name);
}

void SetVariable(const std::string& name, const std::string& value) {
    setenv(name.c_str(), value.c_str(), 1);
}

std::string ReadVariable(const std::string& name) {
    const char* value = getenv(name.c_str());
    return value == nullptr ? "" : value;
}
