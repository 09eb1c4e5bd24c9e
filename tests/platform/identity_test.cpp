// Tokens, sessions, impersonation and processes.
#include <windows.h>
// (after the types)
#include <tlhelp32.h>
#include <wtsapi32.h>

#include <cstdlib>
#include <fstream>
#include <optional>
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

// -1 when the token does not tell.
int Virtualization(HANDLE token) {
    DWORD on = 7;
    DWORD size = 0;
    return GetTokenInformation(token, TokenVirtualizationEnabled, &on, sizeof on, &size)
               ? static_cast<int>(on)
               : -1;
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

TEST_F(Identity, VirtualizationIsSeenFromOutside) {
    SKIP_WITHOUT(kSetSessions);
    UniqueHandle own;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), MAXIMUM_ALLOWED, own.put()));
    if (Role() == "switches off") {
        DWORD off = 0;
        EXPECT_EQ(Virtualization(own.get()), 1);
        EXPECT_TRUE(SetTokenInformation(own.get(), TokenVirtualizationEnabled, &off, sizeof off));
        EXPECT_EQ(Virtualization(own.get()), 0);
        Say("off");
        return Sleep(30'000);
    }
    EXPECT_EQ(Virtualization(own.get()), 0);
    WriteWholeFile(EndpointFolder() / "virtualization", "");  // on in all that start now
    BackgroundProcess other = StartRole("switches off");
    ASSERT_TRUE(other.WaitForOutput("off"));
    EXPECT_EQ(Virtualization(TokenOfProcess(other.Id(), TOKEN_QUERY).get()), 0);
    EXPECT_EQ(Virtualization(own.get()), 1);
}

// --- Processes -----------------------------------------------------------------------------------

using Text = std::basic_string<WCHAR>;

DWORD ParentOf(DWORD process) {
    DWORD parent = 0;
    const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more;
         more = Process32NextW(snapshot.get(), &entry)) {
        if (entry.th32ProcessID == process) parent = entry.th32ParentProcessID;
    }
    return parent;
}

// The session and the name that the list of the terminal services gives a process.
std::optional<std::pair<DWORD, Text>> ListedAs(DWORD process) {
    std::optional<std::pair<DWORD, Text>> found;
    PWTS_PROCESS_INFOW list = nullptr;
    DWORD count = 0;
    EXPECT_TRUE(WTSEnumerateProcessesW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &list, &count));
    for (DWORD i = 0; i < count; ++i) {
        if (list[i].ProcessId == process) found = {list[i].SessionId, list[i].pProcessName};
    }
    WTSFreeMemory(list);
    return found;
}

// What a process tells of its session where the machine keeps none.
const ProcessOptions kInSession8 = {{{"XDG_SESSION_ID", "8"}}, {}, {}};

using ProcessList = MachineTest;

TEST_F(ProcessList, AProcessWhoseParentEndedStillTellsWhoItWas) {
    if (Role() == "grandchild") {
        Say("started");
        const auto file = ScratchFolder() / "parent ended";
        while (!std::filesystem::exists(file)) Sleep(10);
        WriteWholeFile(ScratchFolder() / "answer", std::to_string(ParentOf(GetCurrentProcessId())));
        return;
    }
    if (Role() == "child") {
        BackgroundProcess grandchild = StartRole("grandchild");
        ASSERT_TRUE(grandchild.WaitForOutput("started"));
        WriteWholeFile(ScratchFolder() / "child", std::to_string(GetCurrentProcessId()));
        std::_Exit(0);  // without ending what it started
    }
    RunRole("child");
    WriteWholeFile(ScratchFolder() / "parent ended", "");
    for (int i = 0; i < 1000 && ReadWholeFile(ScratchFolder() / "answer").empty(); ++i) Sleep(10);
    EXPECT_EQ(ReadWholeFile(ScratchFolder() / "answer"), ReadWholeFile(ScratchFolder() / "child"));
}

TEST_F(ProcessList, ProcessesBelongToTheSessionOfTheirUser) {
    SKIP_UNLESS_ADMINISTRATOR();
    LogOn(EndpointFolder(), 7, std::to_string(kStranger));
    ProcessOptions asStranger = kInSession8;
    asStranger.account = kStranger;
    const auto explorer = StartWaitingProgram(ScratchFolder() / "explorer.exe", asStranger);
    EXPECT_EQ(ListedAs(explorer.Id()), std::pair(DWORD{7}, Text(TEXT("explorer.exe"))));
    EXPECT_EQ(ListedAs(GetCurrentProcessId())->first, 0U);
}

TEST_F(ProcessList, WithoutKeptSessionsAProcessTellsItsOwn) {
    SKIP_WITHOUT(kSetSessions);
    const auto explorer = StartWaitingProgram(ScratchFolder() / "explorer.exe", kInSession8);
    EXPECT_EQ(ListedAs(explorer.Id()), std::pair(DWORD{8}, Text(TEXT("explorer.exe"))));
}

}  // namespace
