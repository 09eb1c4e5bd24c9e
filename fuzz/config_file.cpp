// The reader of configuration files: whatever it accepts can be stripped of its comments and saved,
// and what was saved is read and saved again without another change.
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

    const std::string saved = ContentOf(path);
    ConfigFile again(path.generic_string<WCHAR>());
    Promise(again.Load() && again.Root() != nullptr, "what was saved can be loaded");
    Promise(again.Save() && ContentOf(path) == saved, "saving changes nothing more");
    return 0;
}
