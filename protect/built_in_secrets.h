// The secrets that the program carries: the mask of protected files and two pass phrases. They
// stand obfuscated in the program's file.
#pragma once

#include "common/text.h"
#include "protect/protected_memory.h"

inline constexpr std::size_t kFileMaskSize = 128;

// Decodes the stored secrets, once per process; later calls do nothing. The pass phrases are held
// in protected memory from then on.
void DecodeBuiltInSecrets();

// Hands the stored file mask over to its user and wipes it here. It still carries the one-byte mask
// that file_mask.cpp takes off.
void TakeStoredFileMask(BYTE (&mask)[kFileMaskSize]);

// A: last resort for a password-encrypted configuration file without the "Enc " marker.
// B: the same for a file with it, and the key of an encrypted password on the command line.
enum class BuiltInPassPhrase { kA, kB };

// A built-in pass phrase in plain, for the duration of one use.
class OpenedPassPhrase {
  public:
    explicit OpenedPassPhrase(BuiltInPassPhrase passPhrase);

    // False when the system could not hand it out.
    explicit operator bool() const { return static_cast<bool>(opened_); }
    // Empty then.
    const WCHAR* c_str() const;

  private:
    OpenedMemory<80> opened_;
};
