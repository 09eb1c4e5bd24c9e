// The reader of .reg files: it reads any bytes to an end, and what it read and writes again reads
// the same.
#include <string>
#include <variant>

#include "fuzz/machine.h"
#include "platform/posix/snreg/reg_file.h"

namespace {

using Operations = std::vector<RegOperation>;

// A file that sets one value.
std::string FileWith(const RegOperation& operation) {
    return RegFileBytes(RegFileStart() + RegKeyLine(TEXT("HKEY_CURRENT_USER\\k")) +
                        RegValueLine(operation.name, operation.type, operation.data) + RegKeyEnd());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto read = ParseRegFile({reinterpret_cast<const char*>(data), size});
    const auto* const operations = std::get_if<Operations>(&read);
    if (operations == nullptr) return 0;
    for (const RegOperation& operation : *operations) {
        if (operation.action != RegAction::kSetValue || !FitsRegFile(operation.name)) continue;
        const auto again = ParseRegFile(FileWith(operation));
        const auto* const same = std::get_if<Operations>(&again);
        Promise(same != nullptr && same->size() == 2 && same->back().name == operation.name &&
                    same->back().type == operation.type && same->back().data == operation.data,
                "a value that was read is written and read the same");
    }
    return 0;
}
