// The stored form of string values. Plain text stands as it is; the other forms bear a marker of
// five characters:
//
//   "SNP1 " hexadecimal   protected, readable on this machine
//   "SNP2 " hexadecimal   protected, readable by the user who stored it alone
//   "SNP0 " text          plain text that itself begins with one of the three markers
//
// What follows the first two markers is a blob of the system's data protection, made for this
// purpose alone, of the text with its terminator. A text that has the marker but not the digits was
// written by somebody else and counts as plain.
#pragma once

#include "common/secure_text.h"

namespace utilsdll {

enum class Protection { kMachine, kUser };

// Makes the protected form; false when the system refuses.
bool ProtectString(WStringView text, Protection protection, WString& stored);

// Makes the stored form of plain text.
WString StoreString(WStringView text);

bool IsProtectedString(WStringView stored);

// The text behind any stored form; false for a protected one that does not open.
bool ReadStoredString(WStringView stored, SecureText& text);

}  // namespace utilsdll
