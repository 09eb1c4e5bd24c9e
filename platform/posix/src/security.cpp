#include "security.h"

#include <sddl.h>
#include <securitybaseapi.h>
#include <sys/stat.h>
#include <unistd.h>
#include <winbase.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <string>
#include <string_view>

#include "last_error.h"
#include "text.h"
#include "thread_identity.h"

namespace {

constexpr std::string_view kOwnerAlone = "D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)";
constexpr std::string_view kOwnerAloneWithin =
    "D:P(A;OICI;GA;;;OW)(A;OICI;GA;;;SY)(A;OICI;GA;;;BA)";
constexpr std::string_view kSystemSid = "S-1-5-18";
constexpr std::string_view kUserSid = "S-1-22-1-";

// A descriptor with a list that is there and holds no entry for others, or one account's.
struct OwnerDescriptor {
    SECURITY_DESCRIPTOR descriptor = {};
    std::optional<platform::GroupAccess> group;
};

// The account of a text "(A;;0x<rights>;;;<account>)", and what its group may do.
std::optional<platform::GroupAccess> ReadEntry(const std::string& entry) {
    unsigned rights = 0;
    int end = 0;
    if (std::sscanf(entry.c_str(), "(A;;0x%x;;;%n", &rights, &end) != 1 || end == 0 ||
        !entry.ends_with(')')) {
        return std::nullopt;
    }
    const std::string sid = entry.substr(static_cast<std::size_t>(end),
                                         entry.size() - 1 - static_cast<std::size_t>(end));
    const bool isUser = sid.starts_with(kUserSid);
    if (!isUser && sid != kSystemSid) return std::nullopt;
    const auto user = isUser ? static_cast<uid_t>(std::stoul(sid.substr(kUserSid.size()))) : 0;
    const mode_t mode = ((rights & FILE_READ_DATA) != 0 ? S_IRGRP : 0U) |
                        ((rights & FILE_WRITE_DATA) != 0 ? S_IWGRP : 0U) |
                        ((rights & FILE_TRAVERSE) != 0 ? S_IXGRP : 0U);
    return platform::GroupAccess{platform::IdentityOfUser(user).group, mode};
}

}  // namespace

namespace platform {

mode_t ModeOfNewFile(const SECURITY_ATTRIBUTES* attributes) {
    const void* const given = attributes == nullptr ? nullptr : attributes->lpSecurityDescriptor;
    if (given == nullptr) return 0600;
    const auto& descriptor = *static_cast<const SECURITY_DESCRIPTOR*>(given);
    const bool everyone = (descriptor.Control & SE_DACL_PRESENT) != 0 && descriptor.Dacl == nullptr;
    return everyone ? 0666 : 0600;
}

std::optional<GroupAccess> GroupAccessOf(const SECURITY_ATTRIBUTES* attributes) {
    const void* const given = attributes == nullptr ? nullptr : attributes->lpSecurityDescriptor;
    if (given == nullptr) return std::nullopt;
    const auto& descriptor = *static_cast<const SECURITY_DESCRIPTOR*>(given);
    if (descriptor.Dacl == nullptr) return std::nullopt;
    return *reinterpret_cast<const std::optional<GroupAccess>*>(descriptor.Dacl);
}

bool ApplyAccess(int descriptor, mode_t mode, const std::optional<GroupAccess>& group) {
    if (!group) return fchmod(descriptor, mode) == 0;
    return fchown(descriptor, static_cast<uid_t>(-1), group->group) == 0 &&
           fchmod(descriptor, mode | group->mode) == 0;
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
    std::string entry = platform::BytesOf(StringSecurityDescriptor);
    const bool isWithin = entry.starts_with(kOwnerAloneWithin);
    if (StringSDRevision != SDDL_REVISION_1 || SecurityDescriptorSize != nullptr ||
        !(isWithin || entry.starts_with(kOwnerAlone))) {
        return platform::Fail(ERROR_NOT_SUPPORTED);
    }
    entry.erase(0, isWithin ? kOwnerAloneWithin.size() : kOwnerAlone.size());
    const auto group = ReadEntry(entry);
    if (!entry.empty() && !group) return platform::Fail(ERROR_NOT_SUPPORTED);
    void* const memory = LocalAlloc(0, sizeof(OwnerDescriptor));
    if (memory == nullptr) return FALSE;
    auto* const made = new (memory) OwnerDescriptor;
    made->group = group;
    made->descriptor.Revision = SECURITY_DESCRIPTOR_REVISION;
    made->descriptor.Control = SE_DACL_PRESENT | SE_DACL_PROTECTED;
    made->descriptor.Dacl = reinterpret_cast<PACL>(&made->group);
    *SecurityDescriptor = &made->descriptor;
    return TRUE;
}

extern "C" BOOL WINAPI ConvertSidToStringSidW(PSID Sid, LPWSTR* StringSid) {
    if (Sid == nullptr || StringSid == nullptr) return platform::Fail(ERROR_INVALID_PARAMETER);
    const auto& sid = *static_cast<const SID*>(Sid);
    std::string text = "S-1-" + std::to_string(sid.IdentifierAuthority[5]);
    for (unsigned i = 0; i < sid.SubAuthorityCount; ++i) {
        text += "-" + std::to_string((&sid.SubAuthority[0])[i]);
    }
    const std::u16string wide = platform::WideOf(text);
    auto* const memory = static_cast<WCHAR*>(LocalAlloc(0, (wide.size() + 1) * sizeof(WCHAR)));
    if (memory == nullptr) return FALSE;
    *std::ranges::copy(wide, memory).out = 0;
    *StringSid = memory;
    return TRUE;
}
