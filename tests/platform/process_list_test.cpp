#include <windows.h>
// (after the types)
#include <psapi.h>
#include <tlhelp32.h>
#include <wtsapi32.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/accounts.h"
#include "tests/support/machine.h"

namespace {

using Text = std::basic_string<WCHAR>;
constexpr Account kStranger{65534, 65534};

Text FileNameOf(const Text& path) {
    return path.substr(path.find_last_of(TEXT("\\/")) + 1);
}

std::vector<PROCESSENTRY32W> Snapshot() {
    std::vector<PROCESSENTRY32W> entries;
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    EXPECT_NE(snapshot, INVALID_HANDLE_VALUE);
    PROCESSENTRY32W entry{};
    EXPECT_FALSE(Process32FirstW(snapshot, &entry)) << "a record of size 0";
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more;
         more = Process32NextW(snapshot, &entry)) {
        entries.push_back(entry);
    }
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
    CloseHandle(snapshot);
    return entries;
}

std::optional<PROCESSENTRY32W> EntryOf(DWORD process) {
    for (const PROCESSENTRY32W& entry : Snapshot()) {
        if (entry.th32ProcessID == process) return entry;
    }
    return std::nullopt;
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

TEST_F(ProcessList, SnapshotShowsEveryProcessWithItsParentWhileItLives) {
    BackgroundProcess other = StartWaitingProgram(ScratchFolder() / "scheduler.exe");
    const auto entry = EntryOf(other.Id());
    ASSERT_TRUE(entry);
    EXPECT_EQ(Text(entry->szExeFile), TEXT("scheduler.exe"));
    EXPECT_EQ(entry->th32ParentProcessID, GetCurrentProcessId());
    EXPECT_TRUE(EntryOf(GetCurrentProcessId()));
    other.Kill();
    EXPECT_FALSE(EntryOf(other.Id()));
}

TEST_F(ProcessList, AProcessWhoseParentEndedStillTellsWhoItWas) {
    if (Role() == "grandchild") {
        std::puts("started");
        std::fflush(stdout);
        const auto file = ScratchFolder() / "parent ended";
        while (!std::filesystem::exists(file)) Sleep(10);
        WriteWholeFile(ScratchFolder() / "answer",
                       std::to_string(EntryOf(GetCurrentProcessId())->th32ParentProcessID));
        return;
    }
    if (Role() == "child") {
        BackgroundProcess grandchild = StartRole("grandchild");
        ASSERT_TRUE(grandchild.WaitForOutput("started"));
        WriteWholeFile(ScratchFolder() / "child", std::to_string(GetCurrentProcessId()));
        std::_Exit(0);  // without ending what it started
    }
    ASSERT_EQ(RunRole("child").exitCode, 0);
    WriteWholeFile(ScratchFolder() / "parent ended", "");
    for (int i = 0; i < 1000 && ReadWholeFile(ScratchFolder() / "answer").empty(); ++i) Sleep(10);
    EXPECT_EQ(ReadWholeFile(ScratchFolder() / "answer"), ReadWholeFile(ScratchFolder() / "child"));
}

TEST_F(ProcessList, ModulesOfAnotherProcessBeginWithItsProgram) {
    const BackgroundProcess other = StartWaitingProgram(ScratchFolder() / "msiexec.exe");
    while (EntryOf(other.Id())->szExeFile != Text(TEXT("msiexec.exe"))) Sleep(10);
    const HANDLE process =
        OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE, FALSE, other.Id());
    WCHAR path[MAX_PATH] = {};
    const DWORD length = GetProcessImageFileNameW(process, path, MAX_PATH);
    EXPECT_EQ(FileNameOf(path), TEXT("msiexec.exe"));
    EXPECT_EQ(Text(path).size(), length);
    EXPECT_EQ(GetProcessImageFileNameW(process, path, length), 0U);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));

    HMODULE modules[256] = {};
    DWORD needed = 0;
    ASSERT_TRUE(EnumProcessModules(process, modules, sizeof modules, &needed));
    EXPECT_GT(needed, sizeof(HMODULE));
    ASSERT_NE(GetModuleFileNameExW(process, modules[0], path, MAX_PATH), 0U);
    EXPECT_EQ(FileNameOf(path), TEXT("msiexec.exe"));
    ASSERT_NE(GetModuleFileNameExW(process, modules[1], path, MAX_PATH), 0U);
    EXPECT_NE(FileNameOf(path), TEXT("msiexec.exe"));
    CloseHandle(process);

    const HANDLE mayNotRead = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, other.Id());
    EXPECT_FALSE(EnumProcessModules(mayNotRead, modules, sizeof modules, &needed));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    CloseHandle(mayNotRead);
}

TEST_F(ProcessList, ProcessesBelongToTheSessionOfTheirUser) {
    SKIP_UNLESS_ADMINISTRATOR();
    LogOn(EndpointFolder(), 7, std::to_string(kStranger.user));
    ProcessOptions asStranger;
    asStranger.account = kStranger;
    asStranger.environment = {SessionVariable(8)};
    const BackgroundProcess explorer =
        StartWaitingProgram(ScratchFolder() / "explorer.exe", asStranger);
    EXPECT_EQ(ListedAs(explorer.Id()), std::pair(DWORD{7}, Text(TEXT("explorer.exe"))));
    EXPECT_EQ(ListedAs(GetCurrentProcessId())->first, 0U);
}

TEST_F(ProcessList, WithoutKeptSessionsAProcessTellsItsOwn) {
    ProcessOptions options;
    options.environment = {SessionVariable(8)};
    const BackgroundProcess explorer =
        StartWaitingProgram(ScratchFolder() / "explorer.exe", options);
    EXPECT_EQ(ListedAs(explorer.Id()), std::pair(DWORD{8}, Text(TEXT("explorer.exe"))));
}

}  // namespace
