// The configuration lock password, as the registry lock asks for it.
#pragma once

namespace utilsdll {

// A password that cannot be read counts as set.
bool IsLockPasswordSet();

// True when cfg_sentrelmanager_cmp_pwd has found the lock password to be right in this process, and
// it has not been changed since.
bool IsLockPasswordConfirmed();

}  // namespace utilsdll
