// The reader of .reg files: it reads any bytes to an end or to its error, and what it read and
// writes again reads the same.
#include <string>

#include "fuzz/machine.h"
#include "platform/posix/snreg/reg_file.h"

namespace {

// A file that sets one value.
std::string FileWith(const RegValue& value) {
    return RegFileBytes(RegFileStart() + RegKeyText(TEXT("HKEY_CURRENT_USER\\k"), {value}));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<RegOperation> operations;
    try {
        operations = ParseRegFile({reinterpret_cast<const char*>(data), size});
    } catch (const RegFileError&) {
        return 0;
    }
    for (const auto& [action, key, value] : operations) {
        if (action != RegAction::kSetValue || !FitsRegFile(value.name)) continue;
        const auto again = ParseRegFile(FileWith(value));
        Promise(again.size() == 2 && again.back().value.name == value.name &&
                    again.back().value.type == value.type && again.back().value.data == value.data,
                "a value that was read is written and read the same");
    }
    return 0;
}
