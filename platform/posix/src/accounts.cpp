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

// Whether an account is a member; nothing, with the last error set, when that cannot be determined.
using Membership = std::optional<bool>;

Membership IsSystem(const Identity& account) {
    return account.user == 0;
}

Membership IsAdministrator(const Identity& account) {
    const ActAs acting(account);
    return acting ? Membership(Hive::OfMachine()->MayWrite()) : std::nullopt;
}

Membership IsGuest(const Identity& account) {
    std::array<char, 4096> text{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(account.user, &entry, text.data(), text.size(), &found) != 0 ||
        found == nullptr) {
        return false;
    }
    const std::string_view name = found->pw_name;
    return name == "guest" || name == "nobody";
}

Membership IsAuthenticated(const Identity& account) {
    return !*IsGuest(account);
}

struct WellKnownSid {
    WELL_KNOWN_SID_TYPE type;
    std::vector<BYTE> bytes;
    Membership (*isMember)(const Identity& account);
};

const std::vector<WellKnownSid>& WellKnownSids() {
    static const std::vector<WellKnownSid> sids = {
        {WinLocalSystemSid, BytesOfSid(kWindows, {18}), IsSystem},
        {WinBuiltinAdministratorsSid, BytesOfSid(kWindows, {32, 544}), IsAdministrator},
        {WinBuiltinGuestsSid, BytesOfSid(kWindows, {32, 546}), IsGuest},
        {WinAuthenticatedUserSid, BytesOfSid(kWindows, {11}), IsAuthenticated},
    };
    return sids;
}

// The account that questions about the thread are about.
Identity AccountInQuestion() {
    return ForeignIdentity().value_or(ProcessIdentity());
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

using namespace platform;

extern "C" BOOL WINAPI CreateWellKnownSid(WELL_KNOWN_SID_TYPE WellKnownSidType, PSID DomainSid,
                                          PSID pSid, DWORD* cbSid) {
    if (cbSid == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (DomainSid != nullptr) return Fail(ERROR_NOT_SUPPORTED);
    for (const auto& sid : WellKnownSids()) {
        if (sid.type != WellKnownSidType) continue;
        const DWORD capacity = *cbSid;
        *cbSid = static_cast<DWORD>(sid.bytes.size());
        if (pSid == nullptr || capacity < *cbSid) return Fail(ERROR_INSUFFICIENT_BUFFER);
        std::ranges::copy(sid.bytes, static_cast<BYTE*>(pSid));
        return TRUE;
    }
    return Fail(ERROR_NOT_SUPPORTED);
}

extern "C" BOOL WINAPI IsWellKnownSid(PSID pSid, WELL_KNOWN_SID_TYPE WellKnownSidType) {
    return std::ranges::any_of(WellKnownSids(), [=](const auto& sid) {
        return sid.type == WellKnownSidType && IsSid(sid.bytes, pSid);
    });
}

extern "C" BOOL WINAPI EqualSid(PSID pSid1, PSID pSid2) {
    const DWORD size = GetLengthSid(pSid1);
    return size == GetLengthSid(pSid2) && std::memcmp(pSid1, pSid2, size) == 0;
}

extern "C" DWORD WINAPI GetLengthSid(PSID pSid) {
    const DWORD count = static_cast<const SID*>(pSid)->SubAuthorityCount;
    return static_cast<DWORD>(kSidHeaderSize + count * sizeof(DWORD));
}

extern "C" BOOL WINAPI CheckTokenMembership(HANDLE TokenHandle, PSID SidToCheck, BOOL* IsMember) {
    if (SidToCheck == nullptr || IsMember == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const auto token = TokenHandle == nullptr ? nullptr : ObjectOf<Token>(TokenHandle, TOKEN_QUERY);
    if (TokenHandle != nullptr && !token) return FALSE;
    if (token && token->ProcessId() != 0) return Fail(ERROR_NO_IMPERSONATION_TOKEN);
    if (!token && IsIdentifying()) return Fail(ERROR_BAD_IMPERSONATION_LEVEL);
    for (const auto& sid : WellKnownSids()) {
        if (!IsSid(sid.bytes, SidToCheck)) continue;
        const auto isMember = sid.isMember(token ? token->Account() : AccountInQuestion());
        if (!isMember) return FALSE;
        *IsMember = *isMember ? TRUE : FALSE;
        return TRUE;
    }
    return Fail(ERROR_NOT_SUPPORTED);
}

extern "C" BOOL WINAPI IsUserAnAdmin() {
    return IsAdministrator(AccountInQuestion()).value_or(false);
}
