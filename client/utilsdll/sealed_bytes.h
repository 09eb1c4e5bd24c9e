// Secrets that rest in memory.
#pragma once

#include "common/secure_text.h"

namespace utilsdll {

// Holds secret bytes protected by the system's memory protection and opens a copy of them for one
// use; a picture of the process's memory taken in between does not show them.
class SealedBytes {
  public:
    // Takes the bytes over and protects them; false, with nothing held, when that fails.
    bool Seal(SecureBytes bytes);
    // The plain bytes; false when they cannot be opened.
    bool Open(SecureBytes& bytes) const;

  private:
    SecureBytes protected_;
    std::size_t size_ = 0;
};

}  // namespace utilsdll
