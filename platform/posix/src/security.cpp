#include "security.h"

#include <aclapi.h>
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

#include "accounts.h"
#include "endpoint.h"
#include "handles.h"
#include "last_error.h"
#include "text.h"
#include "thread_identity.h"

using namespace platform;

namespace {

constexpr std::string_view kOwnerAlone = "D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)";
constexpr std::string_view kOwnerAloneWithin =
    "D:P(A;OICI;GA;;;OW)(A;OICI;GA;;;SY)(A;OICI;GA;;;BA)";
constexpr std::string_view kSystemSid = "S-1-5-18";
constexpr std::string_view kUserSid = "S-1-22-1-";

constexpr std::string_view kAdministratorsAsOwner = "O:BA";
constexpr std::string_view kEveryone = ";;;AU)";

// What a list allows besides the owner, the system and administrators.
struct ListAccess {
    mode_t mode = 0600;  // with the permissions of every account
    std::optional<GroupAccess> group;
};

// A descriptor with a list that is there.
struct ListDescriptor {
    SECURITY_DESCRIPTOR descriptor = {};
    ListAccess access;
};

// The permissions of others that stand for rights.
mode_t ModeOfRights(unsigned rights) {
    return ((rights & FILE_READ_DATA) != 0 ? S_IROTH : 0U) |
           ((rights & (FILE_WRITE_DATA | FILE_APPEND_DATA)) != 0 ? S_IWOTH : 0U) |
           ((rights & FILE_TRAVERSE) != 0 ? S_IXOTH : 0U);
}

// Reads a text "(A;;0x<rights>;;;<account>)", or none.
bool ReadEntry(const std::string& entry, ListAccess& access) {
    if (entry.empty()) return true;
    unsigned rights = 0;
    int end = 0;
    if (std::sscanf(entry.c_str(), "(A;;0x%x;;;%n", &rights, &end) != 1 || end == 0 ||
        !entry.ends_with(')')) {
        return false;
    }
    const mode_t mode = ModeOfRights(rights);
    if (entry.ends_with(kEveryone)) {
        access.mode |= mode | mode << 3;
        return true;
    }
    const std::string sid = entry.substr(static_cast<std::size_t>(end),
                                         entry.size() - 1 - static_cast<std::size_t>(end));
    const bool isUser = sid.starts_with(kUserSid);
    if (!isUser && sid != kSystemSid) return false;
    const auto user = isUser ? static_cast<uid_t>(std::stoul(sid.substr(kUserSid.size()))) : 0;
    access.group = {IdentityOfUser(user).group, mode << 3};
    return true;
}

// What the list of the attributes allows; null when they have none that was made from a text.
const ListAccess* AccessOf(const SECURITY_ATTRIBUTES* attributes) {
    const void* const given = attributes == nullptr ? nullptr : attributes->lpSecurityDescriptor;
    if (given == nullptr) return nullptr;
    return reinterpret_cast<const ListAccess*>(
        static_cast<const SECURITY_DESCRIPTOR*>(given)->Dacl);
}

}  // namespace

namespace platform {

mode_t ModeOfNewFile(const SECURITY_ATTRIBUTES* attributes) {
    if (const ListAccess* const access = AccessOf(attributes)) return access->mode;
    const void* const given = attributes == nullptr ? nullptr : attributes->lpSecurityDescriptor;
    if (given == nullptr) return 0600;
    const WORD control = static_cast<const SECURITY_DESCRIPTOR*>(given)->Control;
    return (control & SE_DACL_PRESENT) != 0 ? 0666 : 0600;
}

std::optional<GroupAccess> GroupAccessOf(const SECURITY_ATTRIBUTES* attributes) {
    const ListAccess* const access = AccessOf(attributes);
    return access == nullptr ? std::nullopt : access->group;
}

bool ApplyAccess(int descriptor, mode_t mode, const std::optional<GroupAccess>& group) {
    if (!group) return fchmod(descriptor, mode) == 0;
    return fchown(descriptor, static_cast<uid_t>(-1), group->group) == 0 &&
           fchmod(descriptor, mode | group->mode) == 0;
}

bool ApplyAccess(int descriptor, const SECURITY_ATTRIBUTES& attributes) {
    struct stat info {};
    if (fstat(descriptor, &info) != 0) return false;
    mode_t mode = ModeOfNewFile(&attributes);
    // Who may list a folder may pass through it.
    if (S_ISDIR(info.st_mode)) mode |= (mode & 0444U) >> 2;
    return ApplyAccess(descriptor, mode, GroupAccessOf(&attributes));
}

}  // namespace platform

extern "C" BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                                    DWORD dwRevision) {
    if (pSecurityDescriptor == nullptr || dwRevision != SECURITY_DESCRIPTOR_REVISION) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    auto& descriptor = *static_cast<SECURITY_DESCRIPTOR*>(pSecurityDescriptor);
    descriptor = {};
    descriptor.Revision = SECURITY_DESCRIPTOR_REVISION;
    return TRUE;
}

extern "C" BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                                 BOOL bDaclPresent, PACL pDacl,
                                                 BOOL /*bDaclDefaulted*/) {
    if (pSecurityDescriptor == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (pDacl != nullptr) return Fail(ERROR_NOT_SUPPORTED);
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
        return Fail(ERROR_INVALID_PARAMETER);
    }
    std::string entry = BytesOf(StringSecurityDescriptor);
    if (entry.starts_with(kAdministratorsAsOwner)) entry.erase(0, kAdministratorsAsOwner.size());
    const bool isWithin = entry.starts_with(kOwnerAloneWithin);
    if (StringSDRevision != SDDL_REVISION_1 || SecurityDescriptorSize != nullptr ||
        !(isWithin || entry.starts_with(kOwnerAlone))) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    entry.erase(0, isWithin ? kOwnerAloneWithin.size() : kOwnerAlone.size());
    ListAccess access;
    if (!ReadEntry(entry, access)) return Fail(ERROR_NOT_SUPPORTED);
    void* const memory = LocalAlloc(0, sizeof(ListDescriptor));
    if (memory == nullptr) return FALSE;
    auto* const made = new (memory) ListDescriptor;
    made->access = access;
    made->descriptor.Revision = SECURITY_DESCRIPTOR_REVISION;
    made->descriptor.Control = SE_DACL_PRESENT | SE_DACL_PROTECTED;
    made->descriptor.Dacl = reinterpret_cast<PACL>(&made->access);
    *SecurityDescriptor = &made->descriptor;
    return TRUE;
}

extern "C" BOOL WINAPI ConvertSidToStringSidW(PSID Sid, LPWSTR* StringSid) {
    if (Sid == nullptr || StringSid == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const auto& sid = *static_cast<const SID*>(Sid);
    std::string text = "S-1-" + std::to_string(sid.IdentifierAuthority[5]);
    for (unsigned i = 0; i < sid.SubAuthorityCount; ++i) {
        text += "-" + std::to_string((&sid.SubAuthority[0])[i]);
    }
    const std::u16string wide = WideOf(text);
    auto* const memory = static_cast<WCHAR*>(LocalAlloc(0, (wide.size() + 1) * sizeof(WCHAR)));
    if (memory == nullptr) return FALSE;
    *std::ranges::copy(wide, memory).out = 0;
    *StringSid = memory;
    return TRUE;
}

extern "C" DWORD WINAPI GetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE /*ObjectType*/,
                                        SECURITY_INFORMATION SecurityInfo, PSID* ppsidOwner,
                                        PSID* ppsidGroup, PACL* ppDacl, PACL* ppSacl,
                                        PSECURITY_DESCRIPTOR* ppSecurityDescriptor) {
    if (SecurityInfo != OWNER_SECURITY_INFORMATION || ppsidGroup != nullptr || ppDacl != nullptr ||
        ppSacl != nullptr) {
        return ERROR_NOT_SUPPORTED;
    }
    if (ppsidOwner == nullptr || ppSecurityDescriptor == nullptr) return ERROR_INVALID_PARAMETER;
    const auto object = ObjectOf(handle);
    const auto owner = object ? object->Owner() : std::nullopt;
    if (!owner) return GetLastError();
    const bool isAdministrator = *owner != 0 && OwnsMachine(*owner);
    const std::vector<BYTE> sid = isAdministrator ? SidOfAdministrators() : SidOfAccount(*owner);
    auto* const memory =
        static_cast<BYTE*>(LocalAlloc(LPTR, sizeof(SECURITY_DESCRIPTOR) + sid.size()));
    if (memory == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    *ppsidOwner = std::ranges::copy(sid, memory + sizeof(SECURITY_DESCRIPTOR)).out - sid.size();
    auto* const descriptor = new (memory) SECURITY_DESCRIPTOR{};
    descriptor->Revision = SECURITY_DESCRIPTOR_REVISION;
    descriptor->Owner = *ppsidOwner;
    *ppSecurityDescriptor = descriptor;
    return ERROR_SUCCESS;
}
