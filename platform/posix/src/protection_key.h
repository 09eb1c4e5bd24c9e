// The secrets behind data protection, kept in the machine's folder:
//   keys/machine.key       of the machine, readable to every account of it
//   users/<uid>/user.key   of one account, readable to it alone
// Each file holds the 32 random bytes of its key and nothing else.
#pragma once

#include "crypto.h"

namespace platform {

using ProtectionKey = SecretKey<32>;

enum class ProtectionScope : unsigned char { kMachine = 0, kUser = 1 };

// Whether a key that does not exist yet is made. Of several processes that make it at the same time
// one wins, and all get the winner's.
enum class MissingKey { kMake, kFail };

// The key of the machine, or of the account that the calling thread acts as. False, with the last
// error set, when it is missing or cannot be made, and with ERROR_INVALID_DATA when its file is not
// a key's or may be changed (a user's: also be read) by another account.
bool LoadProtectionKey(ProtectionScope scope, MissingKey missing, ProtectionKey& key);

}  // namespace platform
