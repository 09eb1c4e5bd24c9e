// Standard output: the messages that an administrator reads.
#pragma once

#include <windows.h>

// Prints formatted wide text (FormatWide) to standard output: through the console's own call on a
// console, as UTF-8 to a file or pipe. Output that cannot be written is lost without a message.
void ConsolePrint(const WCHAR* format, ...);

// From now on the messages go to standard error: of a program whose standard output is data.
void SendConsoleToStandardError();

// ConsolePrint, but only with the switch -d.
void DebugPrint(const WCHAR* format, ...);
