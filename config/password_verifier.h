// The password verifier in a configuration file's header.
#pragma once

#include <string>
#include <string_view>

#include "common/secure_text.h"

// The attribute of the root element.
inline constexpr const char* kVerifierAttribute = "authentication";

// The verifier for a password: upper-case hexadecimal of the ciphertext of one zero byte under it.
// Empty when the encryption fails.
std::string MakePasswordVerifier(const SecureText& password);

// True when the verifier decrypts with the password. The plaintext is not examined. A
// verifier that cannot be decoded because memory ran out is not tested: true.
bool CheckPasswordVerifier(std::string_view verifier, const SecureText& password);
