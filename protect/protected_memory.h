// Secrets in memory between their uses: encrypted by the system, for this process alone.
#pragma once

#include <windows.h>
//
#include <dpapi.h>

#include <cstddef>

// A secret of a fixed size. It starts plain and zeroed; Protect() encrypts it in place.
template <std::size_t size>
class ProtectedMemory {
  public:
    static constexpr std::size_t kSize = size;
    static_assert(size % CRYPTPROTECTMEMORY_BLOCK_SIZE == 0);

    ProtectedMemory() = default;
    ProtectedMemory(const ProtectedMemory&) = delete;
    ProtectedMemory& operator=(const ProtectedMemory&) = delete;
    ~ProtectedMemory() { SecureZeroMemory(bytes_, size); }

    // Each Unprotect() that succeeds is matched by one Protect(); uses may nest. The first
    // Protect() ends the plain start. Bytes that the system would not encrypt stay plain, and
    // usable.
    bool Protect() {
        if (--uses_ > 0) return true;
        isEncrypted_ = CryptProtectMemory(bytes_, size, CRYPTPROTECTMEMORY_SAME_PROCESS) != FALSE;
        return isEncrypted_;
    }
    bool Unprotect() {
        if (uses_ == 0 && isEncrypted_ &&
            !CryptUnprotectMemory(bytes_, size, CRYPTPROTECTMEMORY_SAME_PROCESS)) {
            return false;
        }
        ++uses_;
        return true;
    }

    // Plain only between Unprotect() and Protect().
    BYTE* Bytes() { return bytes_; }

  private:
    alignas(CRYPTPROTECTMEMORY_BLOCK_SIZE) BYTE bytes_[size] = {};
    int uses_ = 1;  // the plain start is a use
    bool isEncrypted_ = false;
};

// Holds a protected secret open for one use and protects it again.
template <std::size_t size>
class OpenedMemory {
  public:
    explicit OpenedMemory(ProtectedMemory<size>& memory)
        : memory_(memory), isOpen_(memory.Unprotect()) {}
    OpenedMemory(const OpenedMemory&) = delete;
    OpenedMemory& operator=(const OpenedMemory&) = delete;
    ~OpenedMemory() { Close(); }

    // False when the secret could not be unprotected; its bytes are then of no use.
    explicit operator bool() const { return isOpen_; }
    BYTE* Bytes() const { return memory_.Bytes(); }

    // Ends the use now; false when the secret could not be protected again.
    bool Close() {
        if (!isOpen_) return true;
        isOpen_ = false;
        return memory_.Protect();
    }

  private:
    ProtectedMemory<size>& memory_;
    bool isOpen_;
};
