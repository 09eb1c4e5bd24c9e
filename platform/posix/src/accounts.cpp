// Who the calling thread's account is among those that Windows knows by name.
#include <pwd.h>
#include <securitybaseapi.h>
#include <shlobj.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "accounts.h"
#include "hive.h"
#include "last_error.h"
#include "thread_identity.h"
#include "token.h"

namespace platform {
namespace {

// Whether the account in question is a member; nothing, with the last error set, when that cannot
// be determined.
using Membership = std::optional<bool>;

Membership IsSystem() {
    return AccountInQuestion() == 0;
}

Membership IsAdministrator() {
    const ActAsAccountInQuestion account;
    if (!account) return std::nullopt;
    return Hive::OfMachine()->MayWrite();
}

Membership IsGuest() {
    std::array<char, 4096> text{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(AccountInQuestion(), &entry, text.data(), text.size(), &found) != 0 ||
        found == nullptr) {
        return false;
    }
    const std::string_view name = found->pw_name;
    return name == "guest" || name == "nobody";
}

Membership IsAuthenticated() {
    return !*IsGuest();
}

struct WellKnownSid {
    WELL_KNOWN_SID_TYPE type;
    std::vector<DWORD> authorities;  // below the authority 5 of the system
    Membership (*isMember)();
};

const std::vector<WellKnownSid>& WellKnownSids() {
    static const std::vector<WellKnownSid> sids = {
        {WinLocalSystemSid, {18}, IsSystem},
        {WinBuiltinAdministratorsSid, {32, 544}, IsAdministrator},
        {WinBuiltinGuestsSid, {32, 546}, IsGuest},
        {WinAuthenticatedUserSid, {11}, IsAuthenticated},
    };
    return sids;
}

constexpr std::size_t kSidHeaderSize = offsetof(SID, SubAuthority);
constexpr BYTE kWindows = 5;      // the authority of Windows' own accounts
constexpr BYTE kPosixUsers = 22;  // the authority of POSIX users, a common convention

std::vector<BYTE> BytesOfSid(BYTE authority, const std::vector<DWORD>& below) {
    const std::size_t size = below.size() * sizeof(DWORD);
    std::vector<BYTE> bytes = {SID_REVISION, static_cast<BYTE>(below.size()), 0, 0, 0, 0, 0,
                               authority};
    bytes.resize(kSidHeaderSize + size);
    std::memcpy(bytes.data() + kSidHeaderSize, below.data(), size);
    return bytes;
}

std::vector<BYTE> BytesOfSid(const WellKnownSid& sid) {
    return BytesOfSid(kWindows, sid.authorities);
}

bool IsSid(const std::vector<BYTE>& bytes, const void* sid) {
    return std::memcmp(sid, bytes.data(), kSidHeaderSize) == 0 &&
           std::memcmp(sid, bytes.data(), bytes.size()) == 0;
}

}  // namespace

std::vector<BYTE> SidOfAccount(uid_t account) {
    return account == 0 ? BytesOfSid(kWindows, {18}) : BytesOfSid(kPosixUsers, {1, account});
}

std::vector<BYTE> SidOfAdministrators() {
    return BytesOfSid(kWindows, {32, 544});
}

}  // namespace platform

using platform::Fail;

extern "C" BOOL WINAPI CreateWellKnownSid(WELL_KNOWN_SID_TYPE WellKnownSidType, PSID DomainSid,
                                          PSID pSid, DWORD* cbSid) {
    if (cbSid == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (DomainSid != nullptr) return Fail(ERROR_NOT_SUPPORTED);
    for (const auto& sid : platform::WellKnownSids()) {
        if (sid.type != WellKnownSidType) continue;
        const auto bytes = platform::BytesOfSid(sid);
        const DWORD capacity = *cbSid;
        *cbSid = static_cast<DWORD>(bytes.size());
        if (pSid == nullptr || capacity < bytes.size()) return Fail(ERROR_INSUFFICIENT_BUFFER);
        std::memcpy(pSid, bytes.data(), bytes.size());
        return TRUE;
    }
    return Fail(ERROR_NOT_SUPPORTED);
}

extern "C" BOOL WINAPI IsWellKnownSid(PSID pSid, WELL_KNOWN_SID_TYPE WellKnownSidType) {
    return std::ranges::any_of(platform::WellKnownSids(), [=](const auto& sid) {
        return sid.type == WellKnownSidType && platform::IsSid(platform::BytesOfSid(sid), pSid);
    });
}

extern "C" BOOL WINAPI EqualSid(PSID pSid1, PSID pSid2) {
    const DWORD size = GetLengthSid(pSid1);
    return size == GetLengthSid(pSid2) && std::memcmp(pSid1, pSid2, size) == 0;
}

extern "C" DWORD WINAPI GetLengthSid(PSID pSid) {
    const DWORD count = static_cast<const SID*>(pSid)->SubAuthorityCount;
    return static_cast<DWORD>(platform::kSidHeaderSize + count * sizeof(DWORD));
}

extern "C" BOOL WINAPI CheckTokenMembership(HANDLE TokenHandle, PSID SidToCheck, BOOL* IsMember) {
    if (SidToCheck == nullptr || IsMember == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    std::optional<platform::IdentifyFor> account;
    if (TokenHandle != nullptr) {
        const auto token = platform::ObjectOf<platform::Token>(TokenHandle);
        if (!token) return FALSE;
        if (!token->Allows(TOKEN_QUERY)) return Fail(ERROR_ACCESS_DENIED);
        if (token->ProcessId() != 0) return Fail(ERROR_NO_IMPERSONATION_TOKEN);
        account.emplace(token->Account());
    } else if (platform::IsIdentifying()) {
        return Fail(ERROR_BAD_IMPERSONATION_LEVEL);
    }
    for (const auto& sid : platform::WellKnownSids()) {
        if (!platform::IsSid(platform::BytesOfSid(sid), SidToCheck)) continue;
        const auto isMember = sid.isMember();
        if (!isMember) return FALSE;
        *IsMember = *isMember ? TRUE : FALSE;
        return TRUE;
    }
    return Fail(ERROR_NOT_SUPPORTED);
}

extern "C" BOOL WINAPI IsUserAnAdmin() {
    return platform::IsAdministrator().value_or(false) ? TRUE : FALSE;
}
