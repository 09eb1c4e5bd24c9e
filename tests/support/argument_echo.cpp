// Prints each argument's units as hexadecimal numbers, one argument a line; ends with their number.
#include <minwindef.h>

#include <cstdio>

extern "C" int wmain(int argc, WCHAR** argv) {
    for (int i = 1; i < argc; ++i) {
        const char* separator = "";
        for (const WCHAR* unit = argv[i]; *unit != 0; ++unit, separator = " ") {
            std::printf("%s%x", separator, static_cast<unsigned>(*unit));
        }
        std::printf("\n");
    }
    return argv[argc] == nullptr ? argc : -1;
}
