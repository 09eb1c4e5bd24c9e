// One run of the tool, from its first system call to its exit code.
#pragma once

#include <windows.h>

// Does the one job that the arguments ask for and returns the process's exit code:
//   0  nothing refused the job, whatever became of it; or usage was asked for
//   1  a plain password is too short, or the unlock password of an import is wrong
//   2  an import was refused: the configuration is locked
//   3  an import was refused: no administrator rights
//   4  the switch parser reported value 0
//   5  the file of an import is unusable or its password wrong
// While the configuration mutex of the client exists, the whole run owns it.
int RunTool(int argc, WCHAR** argv);
