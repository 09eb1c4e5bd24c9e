// Random bytes for secrets, salts and counters.
#pragma once

#include <span>

#include "common/secure_text.h"

namespace utilsdll {

// Fills the bytes from two sources, mixed: the cryptographic library's generator, which in FIPS
// mode is the crypto service's, and the system's own. Who dictates one of them does not know the
// result. False when either has none to give.
bool DrawRandom(std::span<BYTE> bytes);

}  // namespace utilsdll
