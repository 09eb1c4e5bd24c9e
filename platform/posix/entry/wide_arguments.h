// How the entry of a program turns its arguments into wide text, as Windows' own start-up does.
#pragma once

#include <minwindef.h>

// Runs a program with the wide form of its arguments, which holds every byte without loss, and
// returns its exit code. The arguments stand in one piece of memory, so that they can be wiped also
// when the program has reordered its words: they may hold passwords.
extern "C" WINAPI_EXPORT int RunWithWideArguments(int argc, char** argv,
                                                  int (*program)(int argc, WCHAR** argv));
