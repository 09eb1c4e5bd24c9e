#include "token.h"

#include <processthreadsapi.h>
#include <securitybaseapi.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "accounts.h"
#include "last_error.h"
#include "process_object.h"
#include "token_virtualization.h"

namespace platform {
namespace {

// Who another process is: its effective user and group, and its groups.
bool ReadIdentity(const ProcessFolder& folder, Identity& identity) {
    const std::string status = folder.Read("status");
    const auto users = StatusNumbers(status, "Uid");
    const auto groups = StatusNumbers(status, "Gid");
    if (users.size() < 2 || groups.size() < 2) return false;
    const auto supplementary = StatusNumbers(status, "Groups");
    identity = {users[1], groups[1], {supplementary.begin(), supplementary.end()}};
    std::sort(identity.groups.begin(), identity.groups.end());
    return true;
}

// A fixed-size answer of GetTokenInformation.
template <typename Answer>
BOOL Return(const Answer& answer, LPVOID buffer, DWORD size, PDWORD needed) {
    if (needed != nullptr) *needed = sizeof answer;
    if (buffer == nullptr || size < sizeof answer) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(buffer, &answer, sizeof answer);
    return TRUE;
}

BOOL ReturnUser(uid_t user, LPVOID buffer, DWORD size, PDWORD needed) {
    const std::vector<BYTE> sid = SidOfAccount(user);
    const std::size_t wanted = sizeof(TOKEN_USER) + sid.size();
    if (needed != nullptr) *needed = static_cast<DWORD>(wanted);
    if (buffer == nullptr || size < wanted) return Fail(ERROR_INSUFFICIENT_BUFFER);
    BYTE* const place = static_cast<BYTE*>(buffer) + sizeof(TOKEN_USER);
    std::ranges::copy(sid, place);
    const TOKEN_USER answer{{place, 0}};
    std::memcpy(buffer, &answer, sizeof answer);
    return TRUE;
}

}  // namespace

Token::Token(Identity account, pid_t process, DWORD access)
    : GrantedObject((access & MAXIMUM_ALLOWED) != 0 ? access | TOKEN_ALL_ACCESS : access),
      account_(std::move(account)),
      process_(process) {}

}  // namespace platform

using namespace platform;

extern "C" {

BOOL WINAPI OpenProcessToken(HANDLE ProcessHandle, DWORD DesiredAccess, PHANDLE TokenHandle) {
    if (TokenHandle == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const auto process = ProcessOf(ProcessHandle, PROCESS_QUERY_LIMITED_INFORMATION);
    if (!process) return FALSE;
    Identity identity = ProcessIdentity();
    if (process->Id() != getpid() && !ReadIdentity(process->Folder(), identity)) {
        return Fail(ERROR_ACCESS_DENIED);  // it has ended
    }
    *TokenHandle =
        OpenHandle(std::make_shared<Token>(std::move(identity), process->Id(), DesiredAccess));
    return TRUE;
}

BOOL WINAPI OpenThreadToken(HANDLE ThreadHandle, DWORD DesiredAccess, BOOL OpenAsSelf,
                            PHANDLE TokenHandle) {
    if (TokenHandle == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (ThreadHandle != GetCurrentThread()) return Fail(ERROR_NOT_SUPPORTED);
    if (!OpenAsSelf && IsIdentifying()) return Fail(ERROR_BAD_IMPERSONATION_LEVEL);
    auto account = ForeignIdentity();
    if (!account) return Fail(ERROR_NO_TOKEN);
    *TokenHandle = OpenHandle(std::make_shared<Token>(std::move(*account), 0, DesiredAccess));
    return TRUE;
}

BOOL WINAPI DuplicateToken(HANDLE ExistingTokenHandle,
                           SECURITY_IMPERSONATION_LEVEL ImpersonationLevel,
                           PHANDLE DuplicateTokenHandle) {
    if (DuplicateTokenHandle == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    if (ImpersonationLevel != SecurityIdentification) return Fail(ERROR_NOT_SUPPORTED);
    const auto token = ObjectOf<Token>(ExistingTokenHandle, TOKEN_DUPLICATE);
    if (!token) return FALSE;
    *DuplicateTokenHandle =
        OpenHandle(std::make_shared<Token>(token->Account(), 0, DWORD{TOKEN_QUERY}));
    return TRUE;
}

BOOL WINAPI GetTokenInformation(HANDLE TokenHandle, TOKEN_INFORMATION_CLASS TokenInformationClass,
                                LPVOID TokenInformation, DWORD TokenInformationLength,
                                PDWORD ReturnLength) {
    const auto token = ObjectOf<Token>(TokenHandle, TOKEN_QUERY);
    if (!token) return FALSE;
    switch (TokenInformationClass) {
        case TokenUser:
            return ReturnUser(token->Account().user, TokenInformation, TokenInformationLength,
                              ReturnLength);
        case TokenVirtualizationEnabled: {
            const DWORD on = IsVirtualizationOn(token->ProcessId()) ? 1 : 0;
            return Return(on, TokenInformation, TokenInformationLength, ReturnLength);
        }
        case TokenElevation: {
            const TOKEN_ELEVATION elevation{token->Account().user == 0 ? 1U : 0U};
            return Return(elevation, TokenInformation, TokenInformationLength, ReturnLength);
        }
        default:
            return Fail(ERROR_NOT_SUPPORTED);
    }
}

BOOL WINAPI SetTokenInformation(HANDLE TokenHandle, TOKEN_INFORMATION_CLASS TokenInformationClass,
                                LPVOID TokenInformation, DWORD TokenInformationLength) {
    const auto token = ObjectOf<Token>(TokenHandle, TOKEN_ADJUST_DEFAULT);
    if (!token) return FALSE;
    if (TokenInformationClass != TokenVirtualizationEnabled || token->ProcessId() != getpid()) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    DWORD on = 0;
    if (TokenInformation == nullptr || TokenInformationLength < sizeof on) {
        return Fail(ERROR_BAD_LENGTH);
    }
    std::memcpy(&on, TokenInformation, sizeof on);
    return SetVirtualization(on != 0) ? TRUE : FALSE;
}

BOOL WINAPI ImpersonateLoggedOnUser(HANDLE hToken) {
    const auto token = ObjectOf<Token>(hToken, TOKEN_QUERY | TOKEN_DUPLICATE);
    return token && Impersonate(token->Account());
}

BOOL WINAPI RevertToSelf() {
    return StopImpersonating() ? TRUE : FALSE;
}
}
