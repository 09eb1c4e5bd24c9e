// Owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace platform {

class UniqueDescriptor {
  public:
    UniqueDescriptor() = default;
    explicit UniqueDescriptor(int descriptor) : descriptor_(descriptor) {}
    UniqueDescriptor(UniqueDescriptor&& other) noexcept : descriptor_(other.Release()) {}
    UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~UniqueDescriptor() {
        if (descriptor_ >= 0) close(descriptor_);
    }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }
    int Release() { return std::exchange(descriptor_, -1); }

  private:
    int descriptor_ = -1;
};

}  // namespace platform
