// The commands of the tool: each takes the words after its name and returns the exit code.
#pragma once

#include <vector>

#include "common/text.h"

struct Command {
    const WCHAR* name;
    const char* usage;
    int (*run)(const std::vector<WString>& words);
};

extern const std::vector<Command> kCommands;

// True when a word is a switch of this name, such as "/v" or "-V".
bool IsSwitch(WStringView word, WStringView name);
