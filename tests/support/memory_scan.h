// The process's own memory, searched for what should be gone from it.
#pragma once

#include <functional>
#include <string>
#include <vector>

// A pattern that is looked for without standing in memory itself: its bytes are kept changed.
class HiddenPattern {
  public:
    HiddenPattern(const void* bytes, std::size_t size);

    // True when any writable memory of this process holds the pattern.
    bool StandsInMemory() const;

  private:
    std::string changed_;
};

// True when the page at that address is kept out of the swap, where the system tells.
bool IsLocked(const void* address);

// Hands over a copy of each block of writable memory, as the system tells of it, until one is taken
// with true; tells whether one was. The copies are wiped.
bool AnyWritableBlock(const std::function<bool(const std::vector<char>&)>& take);
