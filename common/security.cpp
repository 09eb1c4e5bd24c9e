#include "common/security.h"

#include <sddl.h>

#include <array>

OwnerAccess::OwnerAccess() {
    ConvertStringSecurityDescriptorToSecurityDescriptorW(
        TEXT("D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)"), SDDL_REVISION_1,
        &attributes_.lpSecurityDescriptor, nullptr);
}

OwnerAccess::~OwnerAccess() {
    LocalFree(attributes_.lpSecurityDescriptor);
}

bool IsMemberOf(WELL_KNOWN_SID_TYPE group, HANDLE token) {
    std::array<BYTE, SECURITY_MAX_SID_SIZE> sid = {};
    DWORD size = SECURITY_MAX_SID_SIZE;
    BOOL isMember = FALSE;
    return CreateWellKnownSid(group, nullptr, sid.data(), &size) &&
           CheckTokenMembership(token, sid.data(), &isMember) && isMember;
}
