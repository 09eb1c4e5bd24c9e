// Tokens, sessions and impersonation.
#include <windows.h>
// (after the types)
#include <wtsapi32.h>

#include <cstdlib>
#include <fstream>
#include <thread>

#include "common/handles.h"
#include "tests/support/accounts.h"
#include "tests/support/file_facts.h"
#include "tests/support/last_error.h"

namespace {

constexpr DWORD kAllTheClientAsks = TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE |
                                    TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES;

// The token of a session's user, or none.
UniqueHandle TokenOfSession(ULONG session) {
    UniqueHandle token;
    WTSQueryUserToken(session, token.put());
    return token;
}

void ExpectNoToken(ULONG session, DWORD error) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(ErrorOf(TokenOfSession(session).get()), error);
}

UniqueHandle TokenOfProcess(DWORD process, DWORD access) {
    UniqueHandle token;
    const UniqueHandle opened(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, process));
    if (opened) OpenProcessToken(opened.get(), access, token.put());
    return token;
}

// The groups that the calling thread acts for, as the kernel tells them.
std::string GroupsOfThread() {
    const std::string status = ReadWholeFile("/proc/thread-self/status");
    const std::size_t start = status.find("Groups:");
    return status.substr(start, status.find('\n', start) - start);
}

class Identity : public MachineTest {
  protected:
    // Makes a file in the scratch folder and tells who owns it.
    unsigned OwnerOfNewFile(const std::string& name) const {
        const auto path = ScratchFolder() / name;
        EXPECT_TRUE(std::ofstream(path).good()) << name;
        return OwnerOf(path);
    }
};

TEST_F(Identity, ImpersonationActsAsTheUserOnThisThreadAloneUntilItEnds) {
    SKIP_UNLESS_ADMINISTRATOR();
    LogOn(EndpointFolder(), 3, std::to_string(kStranger));
    const unsigned self = OwnerOfNewFile("own");
    const auto own = ScratchFolder() / "own";
    std::filesystem::permissions(own, std::filesystem::perms(0640));
    const std::string groups = GroupsOfThread();

    const UniqueHandle token = TokenOfSession(3);
    ASSERT_TRUE(ImpersonateLoggedOnUser(token.get()));
    EXPECT_EQ(OwnerOfNewFile("users"), kStranger);
    EXPECT_FALSE(std::ifstream(own)) << "a right or a group of the process is left";
    ASSERT_TRUE(RevertToSelf());
    EXPECT_EQ(OwnerOfNewFile("own again"), self);
    EXPECT_TRUE(std::ifstream(own));
    EXPECT_EQ(GroupsOfThread(), groups);
    EXPECT_TRUE(RevertToSelf()) << "without impersonation there is nothing to end";

    std::thread([&] {
        EXPECT_TRUE(ImpersonateLoggedOnUser(token.get()));
        EXPECT_EQ(OwnerOfNewFile("of the thread"), kStranger);
    }).join();
    EXPECT_EQ(OwnerOfNewFile("of the process"), self);
}

TEST_F(Identity, OnlyTheRightCallerGetsASessionsTokenOrAnothersProcess) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "stranger") {
        ExpectNoToken(1, ERROR_PRIVILEGE_NOT_HELD);
        const UniqueHandle own = TokenOfSession(2);
        EXPECT_TRUE(ImpersonateLoggedOnUser(own.get())) << "the own account needs no right";
        EXPECT_EQ(OwnerOfNewFile("strangers"), kStranger);
        EXPECT_TRUE(RevertToSelf());
        // Another account's process is closed to it; the first of all is the system's.
        EXPECT_EQ(ErrorOf(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, 1)), ERROR_ACCESS_DENIED);
        return;
    }
    LogOn(EndpointFolder(), 1, "root");
    LogOn(EndpointFolder(), 2, std::to_string(kStranger));
    LogOn(EndpointFolder(), 5, "no such account");
    RunRole("stranger", As(kStranger));
    ExpectNoToken(4, ERROR_CTX_WINSTATION_NOT_FOUND);
    ExpectNoToken(5, ERROR_NO_TOKEN);
    EXPECT_TRUE(TokenOfSession(1));
}

TEST_F(Identity, TokenOfAProcessStandsForItsUser) {
    SKIP_UNLESS_ADMINISTRATOR();
    const auto other = StartWaitingProgram(ScratchFolder() / "explorer.exe", As(kStranger));
    ASSERT_TRUE(ImpersonateLoggedOnUser(TokenOfProcess(other.Id(), kAllTheClientAsks).get()));
    EXPECT_EQ(OwnerOfNewFile("strangers"), kStranger);
    EXPECT_TRUE(RevertToSelf());
    const UniqueHandle onlyQuery = TokenOfProcess(other.Id(), TOKEN_QUERY);
    EXPECT_EQ(ErrorOf(ImpersonateLoggedOnUser(onlyQuery.get())), ERROR_ACCESS_DENIED);
}

}  // namespace
