// The secret behind the library's default key.
#pragma once

#include "common/secure_text.h"

namespace utilsdll {

// 32 random bytes of this machine, made at the first call on it and the same ever after, for every
// process. They lie in "Sentrel\machine.key" of the common application data, readable by the
// account that made them alone. False when they can neither be read nor made; a file that is there
// but does not hold them is never replaced, because that would lose what they protect.
bool MachineSecret(SecureBytes& secret);

}  // namespace utilsdll
