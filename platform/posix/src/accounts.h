// Accounts as Windows names them.
#pragma once

#include <minwindef.h>
#include <sys/types.h>

#include <vector>

namespace platform {

// An account's identifier: root is the system, others have their numbers below the authority that
// stands for users of POSIX.
std::vector<BYTE> SidOfAccount(uid_t account);

// The identifier of the administrators.
std::vector<BYTE> SidOfAdministrators();

}  // namespace platform
