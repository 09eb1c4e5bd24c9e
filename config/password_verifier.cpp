#include "config/password_verifier.h"

#include <utilsdll.h>

#include "common/hex.h"
#include "config/password_decryption.h"

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

bool CheckPasswordVerifier(std::string_view verifier, const SecureText& password) {
    std::vector<BYTE> cipher;
    if (!HexToBytes(verifier, cipher)) return true;
    SecureBytes plain(2 * cipher.size());
    DWORD size = 0;
    return DecryptWithPassword(cipher.data(), static_cast<DWORD>(cipher.size()), plain.data(),
                               static_cast<DWORD>(plain.size()), password.c_str(), size);
}
