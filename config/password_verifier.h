// The password verifier in a configuration file's header: the attribute `authentication`.
#pragma once

#include <string>

#include "common/secure_text.h"

// The verifier for a password: upper-case hexadecimal of the ciphertext of one zero byte under it.
// Empty when the encryption fails.
std::string MakePasswordVerifier(const SecureText& password);
