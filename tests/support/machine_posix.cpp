#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>

#include "tests/support/machine_port.h"

namespace fs = std::filesystem;

void MakeFreshMachine() {}

void NameEndpoint(const fs::path& endpoint) {
    SetVariable("SENTREL_ENDPOINT", endpoint.string());
}

fs::path MakeUniqueFolder() {
    std::string path = (fs::temp_directory_path() / "sentrel-test-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return path;
}

void LinkFile(const fs::path& file, const fs::path& name) {
    fs::create_symlink(file, name);
}

void OpenToEveryAccount(const fs::path& folder) {
    chmod(folder.c_str(), 01777);
}

void SetVariable(const std::string& name, const std::string& value) {
    setenv(name.c_str(), value.c_str(), 1);
}

std::string ReadVariable(const std::string& name) {
    const char* value = getenv(name.c_str());
    return value == nullptr ? "" : value;
}

void SetTemporaryFolder(const fs::path& folder) {
    SetVariable("TMPDIR", folder.string());
}
