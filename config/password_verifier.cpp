#include "config/password_verifier.h"

#include <utilsdll.h>

#include "common/hex.h"

namespace {

constexpr DWORD kVerifierCapacity = 29;  // one byte of plain text and what the cipher adds

}  // namespace

std::string MakePasswordVerifier(const SecureText& password) {
    const BYTE plain = 0;
    BYTE cipher[kVerifierCapacity];
    DWORD size = kVerifierCapacity;
    if (encrypt_buffer(&plain, sizeof plain, cipher, &size, password.c_str()) != 0) return {};
    return BytesToHex(cipher, size);
}
