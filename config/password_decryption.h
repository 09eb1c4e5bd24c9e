// Decrypting with a password that may have been meant with or without quotes.
#pragma once

#include "common/secure_text.h"

// Decrypts `size` bytes with the password as given and, when that fails, with the password in
// double quotes. `plain` has room for at least `capacity` bytes; `plainSize` becomes the length of
// what the attempt that succeeded produced. False, with both unchanged, when neither does.
bool DecryptWithPassword(const BYTE* cipher, DWORD size, BYTE* plain, DWORD capacity,
                         const WCHAR* password, DWORD& plainSize);
