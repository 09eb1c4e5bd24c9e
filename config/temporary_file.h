// A file that exists for the duration of one operation.
#pragma once

#include <utility>

#include "common/text.h"

// Owns a unique file of its own in the calling account's temporary folder and deletes it at the
// end.
class TemporaryFile {
  public:
    // Makes the file, empty and readable by its owner alone.
    TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile();

    // Empty when the file could not be made.
    const WString& Path() const { return path_; }
    // Hands the file over to the caller, who deletes it.
    WString Release() { return std::exchange(path_, WString()); }

  private:
    WString path_;
};
