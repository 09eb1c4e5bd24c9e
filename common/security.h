// Security descriptors for objects that every account may use.
#pragma once

#include <windows.h>

// Security attributes with a null access-control list, valid while the object lives.
class EveryoneAccess {
  public:
    EveryoneAccess() {
        InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&descriptor_, TRUE, nullptr, FALSE);
    }
    EveryoneAccess(const EveryoneAccess&) = delete;
    EveryoneAccess& operator=(const EveryoneAccess&) = delete;

    SECURITY_ATTRIBUTES* get() { return &attributes_; }

  private:
    SECURITY_DESCRIPTOR descriptor_ = {};
    SECURITY_ATTRIBUTES attributes_ = {sizeof(SECURITY_ATTRIBUTES), &descriptor_, FALSE};
};
