#include <exception>
#include <iostream>

#include "commands.h"
#include "key_name.h"

namespace {

void PrintUsage() {
    std::cout << "REG Operation [Parameter List]\n\n  Operation  [ ";
    for (const Command& command : kCommands) {
        std::cout << (&command == kCommands.data() ? "" : " | ") << WideToUtf8(command.name);
    }
    std::cout << " ]\n\n  REG Operation /? tells more. The exit code is 0 on success, else 1.\n";
}

int Run(const std::vector<WString>& words) {
    if (!words.empty() && IsSwitch(words[0], TEXT("?"))) {
        PrintUsage();
        return 0;
    }
    for (const Command& command : kCommands) {
        if (words.empty() || !EqualWithoutCase(words[0], command.name)) continue;
        if (words.size() == 2 && IsSwitch(words[1], TEXT("?"))) {
            std::cout << command.usage;
            return 0;
        }
        return command.run({words.begin() + 1, words.end()});
    }
    std::cerr << "ERROR: Invalid syntax.\nType \"REG /?\" for usage.\n";
    return 1;
}

}  // namespace

extern "C" int wmain(int argc, WCHAR** argv) {
    try {
        const int exitCode = Run({argv + 1, argv + argc});
        return std::cout.flush() ? exitCode : 1;
    } catch (const std::exception& error) {
        std::cerr << "ERROR: " << error.what() << '\n';
        return 1;
    }
}
