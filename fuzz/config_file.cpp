// The reader of configuration files: whatever it accepts can be stripped of its comments and saved
// as TinyXML saves it, and what was saved can be given to the reader again.
#include <fstream>
#include <iterator>
#include <string>

#include "config/comments.h"
#include "config/config_file.h"
#include "fuzz/machine.h"

namespace {

std::string ContentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto path = InputFile({reinterpret_cast<const char*>(data), size});
    ConfigFile file(path.generic_string<WCHAR>());
    if (!file.Load() || file.Root() == nullptr) return 0;
    StripComments(file.Root());
    Promise(SelectComments(file.Root()).empty(), "no comment is left");
    Promise(file.Save(), "what was loaded can be saved");

    const auto other = path.parent_path() / "other";
    Promise(file.Document().SaveFile(other.string()) && ContentOf(path) == ContentOf(other),
            "a file is saved as TinyXML saves it");
    ConfigFile(path.generic_string<WCHAR>()).Load();
    return 0;
}
