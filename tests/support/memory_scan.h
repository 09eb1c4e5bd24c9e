// The process's own memory, searched for what should be gone from it.
#pragma once

#include <string>

// A pattern that is looked for without standing in memory itself: its bytes are kept changed.
class HiddenPattern {
  public:
    HiddenPattern(const void* bytes, std::size_t size);

    // True when any writable memory of this process holds the pattern.
    bool StandsInMemory() const;

  private:
    std::string changed_;
};
