// Tokens, sessions and impersonation.
#include <windows.h>
#include <wtsapi32.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "common/handles.h"
#include "tests/support/accounts.h"
#include "tests/support/machine.h"

namespace {

constexpr Account kStranger{65534, 65534};
constexpr DWORD kAllTheClientAsks = TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE |
                                    TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES;

ProcessOptions AsStranger() {
    ProcessOptions options;
    options.account = kStranger;
    return options;
}

// The token of a session's user, or null.
HANDLE TokenOfSession(ULONG session) {
    HANDLE token = nullptr;
    return WTSQueryUserToken(session, &token) ? token : nullptr;
}

void ExpectNoToken(ULONG session, DWORD error) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(TokenOfSession(session), nullptr);
    EXPECT_EQ(GetLastError(), error);
}

// -1 when the token does not tell.
int Virtualization(HANDLE token) {
    DWORD on = 7;
    DWORD size = 0;
    return GetTokenInformation(token, TokenVirtualizationEnabled, &on, sizeof on, &size)
               ? static_cast<int>(on)
               : -1;
}

HANDLE TokenOfProcess(DWORD process, DWORD access) {
    HANDLE token = nullptr;
    const HANDLE opened = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, process);
    if (opened == nullptr) return nullptr;
    OpenProcessToken(opened, access, &token);
    CloseHandle(opened);
    return token;
}

// A protected text, empty on failure; and whether the thread's account can read it.
std::string Protected(DWORD flags) {
    BYTE text[] = {'t', 'e', 'x', 't'};
    DATA_BLOB plain{sizeof text, text};
    DATA_BLOB blob{};
    if (!CryptProtectData(&plain, nullptr, nullptr, nullptr, nullptr, flags, &blob)) return {};
    std::string bytes(reinterpret_cast<char*>(blob.pbData), blob.cbData);
    LocalFree(blob.pbData);
    return bytes;
}

bool CanRead(std::string bytes) {
    DATA_BLOB blob{static_cast<DWORD>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data())};
    DATA_BLOB plain{};
    if (!CryptUnprotectData(&blob, nullptr, nullptr, nullptr, nullptr, 0, &plain)) return false;
    LocalFree(plain.pbData);
    return true;
}

class Identity : public MachineTest {
  protected:
    // Makes a file in the scratch folder and tells who owns it.
    unsigned OwnerOfNewFile(const std::string& name) const {
        const auto path = ScratchFolder() / name;
        EXPECT_TRUE(std::ofstream(path).good()) << name;
        return OwnerOf(path);
    }
    bool MayRead(const std::string& name) const {
        return std::ifstream(ScratchFolder() / name).good();
    }
};

TEST_F(Identity, ImpersonationActsAsTheUserOnThisThreadAloneUntilItEnds) {
    SKIP_UNLESS_ADMINISTRATOR();
    LogOn(EndpointFolder(), 3, std::to_string(kStranger.user));
    const unsigned self = OwnerOfNewFile("own");
    HideFromStrangers(ScratchFolder() / "own");
    const auto groups = GroupsOfThread();

    const HANDLE token = TokenOfSession(3);
    ASSERT_TRUE(ImpersonateLoggedOnUser(token));
    CloseHandle(token);
    EXPECT_EQ(OwnerOfNewFile("users"), kStranger.user);
    EXPECT_FALSE(MayRead("own")) << "a right or a group of the process is left";
    ASSERT_TRUE(RevertToSelf());
    EXPECT_EQ(OwnerOfNewFile("own again"), self);
    EXPECT_TRUE(MayRead("own"));
    EXPECT_EQ(GroupsOfThread(), groups);
    EXPECT_TRUE(RevertToSelf()) << "without impersonation there is nothing to end";

    const HANDLE again = TokenOfSession(3);
    std::thread([&] {
        EXPECT_TRUE(ImpersonateLoggedOnUser(again));
        EXPECT_EQ(OwnerOfNewFile("of the thread"), kStranger.user);
    }).join();
    EXPECT_EQ(OwnerOfNewFile("of the process"), self);
    CloseHandle(again);
}

TEST_F(Identity, UserProtectionFollowsTheImpersonatedUserMachineProtectionDoesNot) {
    SKIP_UNLESS_ADMINISTRATOR();
    LogOn(EndpointFolder(), 1, std::to_string(kStranger.user));
    const std::string ofProcess = Protected(0);

    const UniqueHandle token(TokenOfSession(1));
    ASSERT_TRUE(ImpersonateLoggedOnUser(token.get()));
    const std::string ofUser = Protected(0);
    const std::string ofMachine = Protected(CRYPTPROTECT_LOCAL_MACHINE);
    EXPECT_FALSE(CanRead(ofProcess));
    EXPECT_TRUE(CanRead(ofUser));
    EXPECT_TRUE(RevertToSelf());
    EXPECT_FALSE(CanRead(ofUser));
    EXPECT_TRUE(CanRead(ofMachine));
}

TEST_F(Identity, OnlyTheRightCallerGetsTheTokenOfASession) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "stranger") {
        ExpectNoToken(1, ERROR_PRIVILEGE_NOT_HELD);
        const HANDLE own = TokenOfSession(2);
        EXPECT_TRUE(ImpersonateLoggedOnUser(own)) << "the own account needs no right";
        EXPECT_EQ(OwnerOfNewFile("strangers"), kStranger.user);
        EXPECT_TRUE(RevertToSelf());
        CloseHandle(own);
        return;
    }
    LogOn(EndpointFolder(), 1, "root");
    LogOn(EndpointFolder(), 2, std::to_string(kStranger.user));
    LogOn(EndpointFolder(), 5, "no such account");
    const ProcessResult result = RunRole("stranger", AsStranger());
    EXPECT_EQ(result.exitCode, 0) << result.output;
    ExpectNoToken(4, ERROR_CTX_WINSTATION_NOT_FOUND);
    ExpectNoToken(5, ERROR_NO_TOKEN);
    const HANDLE own = TokenOfSession(1);
    EXPECT_NE(own, nullptr);
    CloseHandle(own);
}

TEST_F(Identity, TokenOfAProcessStandsForItsUser) {
    SKIP_UNLESS_ADMINISTRATOR();
    const BackgroundProcess other =
        StartWaitingProgram(ScratchFolder() / "explorer.exe", AsStranger());
    const HANDLE token = TokenOfProcess(other.Id(), kAllTheClientAsks);
    ASSERT_TRUE(ImpersonateLoggedOnUser(token));
    EXPECT_EQ(OwnerOfNewFile("strangers"), kStranger.user);
    EXPECT_TRUE(RevertToSelf());
    CloseHandle(token);

    const HANDLE onlyQuery = TokenOfProcess(other.Id(), TOKEN_QUERY);
    EXPECT_FALSE(ImpersonateLoggedOnUser(onlyQuery));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    CloseHandle(onlyQuery);
}

TEST_F(Identity, ProcessesAreOpenedByThoseWhoMayAndWaitedForUntilTheyEnd) {
    BackgroundProcess other = StartWaitingProgram(ScratchFolder() / "other");
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, other.Id());
    ASSERT_NE(process, nullptr);
    EXPECT_EQ(WaitForSingleObject(process, 50), static_cast<DWORD>(WAIT_TIMEOUT));
    HANDLE token = nullptr;
    EXPECT_FALSE(OpenProcessToken(process, TOKEN_QUERY, &token));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    other.Kill();
    EXPECT_EQ(WaitForSingleObject(process, 10'000), static_cast<DWORD>(WAIT_OBJECT_0));
    CloseHandle(process);
    EXPECT_EQ(OpenProcess(SYNCHRONIZE, FALSE, 0), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(Identity, AStrangersProcessIsClosedToAnOrdinaryUser) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (!Role().empty()) {
        const auto id = static_cast<DWORD>(std::stoul(Role()));
        EXPECT_EQ(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
        return;
    }
    const ProcessResult result = RunRole(std::to_string(GetCurrentProcessId()), AsStranger());
    EXPECT_EQ(result.exitCode, 0) << result.output;
}

TEST_F(Identity, VirtualizationIsSeenFromOutside) {
    HANDLE own = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), MAXIMUM_ALLOWED, &own));
    if (Role() == "switches off") {
        DWORD off = 0;
        EXPECT_EQ(Virtualization(own), 1);
        EXPECT_TRUE(SetTokenInformation(own, TokenVirtualizationEnabled, &off, sizeof off));
        EXPECT_EQ(Virtualization(own), 0);
        std::puts("off");
        std::fflush(stdout);
        Sleep(30'000);
        return;
    }
    EXPECT_EQ(Virtualization(own), 0);
    DWORD size = 0;
    BYTE small = 0;
    EXPECT_FALSE(GetTokenInformation(own, TokenVirtualizationEnabled, &small, 1, &size));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(size, sizeof(DWORD));

    SwitchVirtualizationOn(EndpointFolder());
    BackgroundProcess other = StartRole("switches off");
    ASSERT_TRUE(other.WaitForOutput("off"));
    const HANDLE others = TokenOfProcess(other.Id(), TOKEN_QUERY);
    EXPECT_EQ(Virtualization(others), 0);
    EXPECT_EQ(Virtualization(own), 1);
    CloseHandle(others);
    CloseHandle(own);
}

}  // namespace
