#include "security.h"

#include <sddl.h>
#include <securitybaseapi.h>
#include <winbase.h>

#include <new>
#include <string_view>

#include "last_error.h"

namespace {

constexpr std::u16string_view kOwnerAlone = u"D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)";

// A descriptor with a list that is there and holds no entry for others.
struct OwnerAloneDescriptor {
    SECURITY_DESCRIPTOR descriptor = {};
    char list = 0;
};

}  // namespace

namespace platform {

mode_t ModeOfNewFile(const SECURITY_ATTRIBUTES* attributes) {
    const void* const given = attributes == nullptr ? nullptr : attributes->lpSecurityDescriptor;
    if (given == nullptr) return 0600;
    const auto& descriptor = *static_cast<const SECURITY_DESCRIPTOR*>(given);
    const bool everyone = (descriptor.Control & SE_DACL_PRESENT) != 0 && descriptor.Dacl == nullptr;
    return everyone ? 0666 : 0600;
}

}  // namespace platform

extern "C" BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                                    DWORD dwRevision) {
    if (pSecurityDescriptor == nullptr || dwRevision != SECURITY_DESCRIPTOR_REVISION) {
        return platform::Fail(ERROR_INVALID_PARAMETER);
    }
    auto& descriptor = *static_cast<SECURITY_DESCRIPTOR*>(pSecurityDescriptor);
    descriptor = {};
    descriptor.Revision = SECURITY_DESCRIPTOR_REVISION;
    return TRUE;
}

extern "C" BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                                 BOOL bDaclPresent, PACL pDacl,
                                                 BOOL /*bDaclDefaulted*/) {
    if (pSecurityDescriptor == nullptr) return platform::Fail(ERROR_INVALID_PARAMETER);
    if (pDacl != nullptr) return platform::Fail(ERROR_NOT_SUPPORTED);
    auto& descriptor = *static_cast<SECURITY_DESCRIPTOR*>(pSecurityDescriptor);
    descriptor.Control = static_cast<WORD>(bDaclPresent ? descriptor.Control | SE_DACL_PRESENT
                                                        : descriptor.Control & ~SE_DACL_PRESENT);
    descriptor.Dacl = nullptr;
    return TRUE;
}

extern "C" BOOL WINAPI ConvertStringSecurityDescriptorToSecurityDescriptorW(
    LPCWSTR StringSecurityDescriptor, DWORD StringSDRevision,
    PSECURITY_DESCRIPTOR* SecurityDescriptor, PULONG SecurityDescriptorSize) {
    if (StringSecurityDescriptor == nullptr || SecurityDescriptor == nullptr) {
        return platform::Fail(ERROR_INVALID_PARAMETER);
    }
    if (StringSDRevision != SDDL_REVISION_1 || SecurityDescriptorSize != nullptr ||
        StringSecurityDescriptor != kOwnerAlone) {
        return platform::Fail(ERROR_NOT_SUPPORTED);
    }
    void* const memory = LocalAlloc(0, sizeof(OwnerAloneDescriptor));
    if (memory == nullptr) return FALSE;
    auto* const made = new (memory) OwnerAloneDescriptor;
    made->descriptor.Revision = SECURITY_DESCRIPTOR_REVISION;
    made->descriptor.Control = SE_DACL_PRESENT | SE_DACL_PROTECTED;
    made->descriptor.Dacl = reinterpret_cast<PACL>(&made->list);
    *SecurityDescriptor = &made->descriptor;
    return TRUE;
}
