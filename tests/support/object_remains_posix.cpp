#include "tests/support/machine.h"
#include "tests/support/object_remains.h"

namespace fs = std::filesystem;

namespace {

// Whoever makes the object takes over this file and changes its size.
constexpr const char* kRemains = "remains";

fs::path FileOfObject(const fs::path& endpoint, const std::string& name) {
    return endpoint / "run" / ("Global%5C" + name);
}

}  // namespace

void LeaveObjectRemains(const fs::path& endpoint, const std::string& name) {
    WriteWholeFile(FileOfObject(endpoint, name), kRemains);
    fs::permissions(FileOfObject(endpoint, name), fs::perms(0666));
}

bool AreObjectRemainsUntouched(const fs::path& endpoint, const std::string& name) {
    return ReadWholeFile(FileOfObject(endpoint, name)) == kRemains;
}
