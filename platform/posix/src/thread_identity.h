// The account that the calling thread acts as towards the file system.
#pragma once

#include <sys/types.h>

namespace platform {

// The thread's own account: the impersonated one while it impersonates, else the process's.
uid_t ThreadAccount();

}  // namespace platform
