// Text on standard output and standard error.
#pragma once

#include "common/text.h"

// Writes the text through the console's own call on a console, and as UTF-8 to a file or pipe,
// where lines end as in any text file of the system. Output that cannot be written is lost without
// a message.
void WriteConsoleText(WStringView text);

// The same on standard error.
void WriteErrorText(WStringView text);

// Answers a program's --version: its name and the version of this build.
void WriteVersion(WStringView program);
