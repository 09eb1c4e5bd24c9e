#include <windows.h>
// (after the types)
#include <tlhelp32.h>
#include <wtsapi32.h>

#include <cstdlib>
#include <optional>
#include <utility>

#include "tests/support/accounts.h"
#include "tests/support/machine.h"

namespace {

using Text = std::basic_string<WCHAR>;

DWORD ParentOf(DWORD process) {
    DWORD parent = 0;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more;
         more = Process32NextW(snapshot, &entry)) {
        if (entry.th32ProcessID == process) parent = entry.th32ParentProcessID;
    }
    CloseHandle(snapshot);
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

class ProcessList : public MachineTest {};

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
    ProcessOptions asStranger = As(kStranger);
    asStranger.environment = {SessionVariable(8)};
    const BackgroundProcess explorer =
        StartWaitingProgram(ScratchFolder() / "explorer.exe", asStranger);
    EXPECT_EQ(ListedAs(explorer.Id()), std::pair(DWORD{7}, Text(TEXT("explorer.exe"))));
    EXPECT_EQ(ListedAs(GetCurrentProcessId())->first, 0U);
}

TEST_F(ProcessList, WithoutKeptSessionsAProcessTellsItsOwn) {
    SKIP_WITHOUT(kSetSessions);
    ProcessOptions options;
    options.environment = {SessionVariable(8)};
    const BackgroundProcess explorer =
        StartWaitingProgram(ScratchFolder() / "explorer.exe", options);
    EXPECT_EQ(ListedAs(explorer.Id()), std::pair(DWORD{8}, Text(TEXT("explorer.exe"))));
}

}  // namespace
