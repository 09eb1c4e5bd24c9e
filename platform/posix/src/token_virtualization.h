// Whether file and registry writes of a process to places of the machine are redirected to its
// user's own: a switch of each process's token. A new process has it on when the machine's folder
// holds a file "virtualization", else off. Nothing is redirected on this system; the switch stands
// for what Windows would do, and every process may look at another's through its token.
#pragma once

#include <sys/types.h>

namespace platform {

bool IsVirtualizationOn(pid_t process);

// Sets the calling process's switch. False with the last error set on failure.
bool SetVirtualization(bool on);

}  // namespace platform
