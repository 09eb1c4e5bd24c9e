// Buffers of secrets that leave nothing behind: every byte that they ever held is wiped before its
// memory is given back, also when a buffer grows or moves. They lie in locked memory.
#pragma once

#include <cstddef>
#include <vector>

#include "common/locked_memory.h"
#include "common/text.h"

// Overwrites memory with zeros in a way that the compiler does not leave out.
void WipeMemory(void* memory, std::size_t size);

// The allocator of the types below.
template <typename Type>
class WipingAllocator {
  public:
    using value_type = Type;

    WipingAllocator() = default;
    template <typename Other>
    explicit(false) WipingAllocator(const WipingAllocator<Other>& /*other*/) {}

    Type* allocate(std::size_t count) {
        return static_cast<Type*>(AllocateLocked(count * sizeof(Type)));
    }
    void deallocate(Type* memory, std::size_t count) { FreeLocked(memory, count * sizeof(Type)); }
    template <typename Other>
    bool operator==(const WipingAllocator<Other>& /*other*/) const {
        return true;
    }
};

// Secret bytes.
using SecureBytes = std::vector<BYTE, WipingAllocator<BYTE>>;

// A secret UTF-16 text, always with its terminator. Unlike std::basic_string it keeps no short text
// inside the object, where a move or a destructor would leave it behind.
class SecureText {
  public:
    SecureText() = default;
    explicit SecureText(WStringView text);
    SecureText& operator=(WStringView text);

    const WCHAR* c_str() const { return units_.empty() ? TEXT("") : units_.data(); }
    std::size_t size() const { return units_.empty() ? 0 : units_.size() - 1; }
    bool empty() const { return size() == 0; }

  private:
    std::vector<WCHAR, WipingAllocator<WCHAR>> units_;
};
