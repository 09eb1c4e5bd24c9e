#include "fuzz/machine.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

const std::filesystem::path& MachineFolder() {
    static const std::filesystem::path folder = [] {
        std::string name = (std::filesystem::temp_directory_path() / "snfuzz.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        setenv("SENTREL_ENDPOINT", name.c_str(), 1);
        setenv("TMPDIR", name.c_str(), 1);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(MachineFolder(), ignored);
        });
        return std::filesystem::path(name);
    }();
    return folder;
}

std::filesystem::path InputFile(std::string_view input) {
    const auto path = MachineFolder() / "input";
    std::ofstream(path, std::ios::binary) << input;
    return path;
}

void Promise(bool holds, const char* promise) {
    if (holds) return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}
