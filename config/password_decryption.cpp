#include "config/password_decryption.h"

#include <utilsdll.h>

namespace {

SecureText InQuotes(WStringView password) {
    std::vector<WCHAR, WipingAllocator<WCHAR>> quoted;
    quoted.reserve(password.size() + 2);
    quoted.push_back('"');
    quoted.insert(quoted.end(), password.begin(), password.end());
    quoted.push_back('"');
    return SecureText(WStringView(quoted.data(), quoted.size()));
}

}  // namespace

bool DecryptWithPassword(const BYTE* cipher, DWORD size, BYTE* plain, DWORD capacity,
                         const WCHAR* password, DWORD& plainSize) {
    DWORD produced = capacity;
    if (decrypt_buffer(cipher, size, plain, &produced, password) != 0) {
        produced = capacity;
        if (decrypt_buffer(cipher, size, plain, &produced, InQuotes(password).c_str()) != 0) {
            return false;
        }
    }
    plainSize = produced;
    return true;
}
