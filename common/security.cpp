#include "common/security.h"

#include <sddl.h>

#include <array>

AccessList::AccessList(const WCHAR* list) {
    ConvertStringSecurityDescriptorToSecurityDescriptorW(
        list, SDDL_REVISION_1, &attributes_.lpSecurityDescriptor, nullptr);
}

AccessList::~AccessList() {
    LocalFree(attributes_.lpSecurityDescriptor);
}

bool IsMemberOf(WELL_KNOWN_SID_TYPE group, HANDLE token) {
    std::array<BYTE, SECURITY_MAX_SID_SIZE> sid = {};
    DWORD size = SECURITY_MAX_SID_SIZE;
    BOOL isMember = FALSE;
    return CreateWellKnownSid(group, nullptr, sid.data(), &size) &&
           CheckTokenMembership(token, sid.data(), &isMember) && isMember;
}

bool IsOwnedByAdministrators(HANDLE object, SE_OBJECT_TYPE type) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetSecurityInfo(object, type, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &descriptor) != ERROR_SUCCESS) {
        return false;
    }
    const bool isTheirs = owner != nullptr && (IsWellKnownSid(owner, WinLocalSystemSid) ||
                                               IsWellKnownSid(owner, WinBuiltinAdministratorsSid));
    LocalFree(descriptor);
    return isTheirs;
}
