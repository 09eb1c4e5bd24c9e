// The command line of a program that CLI11 reads.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/text.h"

namespace CLI {
class App;
}

// What a program was started with, but for its own name, in UTF-8 without loss.
struct Utf8Arguments {
    std::vector<std::string> words;
    // Empty, or which argument cannot be given in UTF-8: one that holds an unpaired surrogate,
    // which on Linux also stands for a byte that is no UTF-8. There are no words then.
    WString fault;
};
Utf8Arguments ReadArguments(int argc, WCHAR* const* argv);

// Reads the program's arguments with `app`, which calls the functions that are registered in it.
// Nothing when that is all; else the program is to end with the exit code: 0 after help or the
// version was written to standard output, `usageError` after a complaint on standard error.
std::optional<int> ReadCommandLine(CLI::App& app, int argc, WCHAR* const* argv, int usageError);
