// What accounts may do: objects that every account or none but the owner may use, and the groups of
// an account.
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

// Security attributes that leave out everybody but the owner, the system and administrators, valid
// while the object lives. get() is null where memory ran out: nothing may be made then.
class OwnerAccess {
  public:
    OwnerAccess();
    OwnerAccess(const OwnerAccess&) = delete;
    OwnerAccess& operator=(const OwnerAccess&) = delete;
    ~OwnerAccess();

    SECURITY_ATTRIBUTES* get() {
        return attributes_.lpSecurityDescriptor == nullptr ? nullptr : &attributes_;
    }

  private:
    SECURITY_ATTRIBUTES attributes_ = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

// True when a token's account belongs to the group; null stands for the account that the thread
// acts as. A token that is given is an impersonation token with the right TOKEN_QUERY.
bool IsMemberOf(WELL_KNOWN_SID_TYPE group, HANDLE token = nullptr);
