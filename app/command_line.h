// The command line: from switches to run settings.
#pragma once

#include <windows.h>

#include <optional>

// Exit codes with which parsing can end a run.
inline constexpr int kExitUsage = 0;
inline constexpr int kExitShortPassword = 1;
inline constexpr int kExitParserValueZero = 4;

// Fills g_RunSettings from the arguments. Returns nothing when the run goes on, else the exit code
// with which it ends: usage shown, a plain password that is too short, or the parser's value 0.
// Parsing stops at the first switch that ends the run. Words that are no switches are passed over.
std::optional<int> ParseCommandLine(int argc, WCHAR** argv);

// Prints the usage text, with the program's path as the process received it.
void PrintUsage(const WCHAR* programPath);
