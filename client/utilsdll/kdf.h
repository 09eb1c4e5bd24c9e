// Key derivation, by the cryptographic library.
#pragma once

#include <span>
#include <string_view>

#include "common/secure_text.h"

namespace utilsdll {

using Bytes = std::span<const BYTE>;

// HKDF with HMAC-SHA512, extract then expand: `size` bytes from a key, a salt (may be empty) and an
// info. False when the library fails.
bool Hkdf(Bytes key, Bytes salt, Bytes info, std::size_t size, SecureBytes& derived);

// PBKDF2 with HMAC-SHA512.
bool Pbkdf2(Bytes passPhrase, Bytes salt, int rounds, std::size_t size, SecureBytes& derived);

// `label`, a zero byte and `data`: salts and infos of different uses never meet.
std::vector<BYTE> Labelled(std::string_view label, Bytes data);

}  // namespace utilsdll
