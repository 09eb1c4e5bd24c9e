// Prints each argument's units as hexadecimal numbers, with a semicolon behind; ends with the
// arguments' number.
#include <minwindef.h>

#include <cstdio>

extern "C" int wmain(int argc, WCHAR** argv) {
    for (int i = 1; i < argc; ++i) {
        const char* separator = "";
        for (const WCHAR* unit = argv[i]; *unit != 0; ++unit, separator = " ") {
            std::printf("%s%x", separator, static_cast<unsigned>(*unit));
        }
        std::printf(";");
    }
    return argv[argc] == nullptr ? argc : -1;
}
