#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/machine.h"

namespace {

constexpr WCHAR kName[] = TEXT("Global\\Sentrel test object");
constexpr DWORD kLong = 20'000;  // milliseconds: longer than anything here takes

class SyncTest : public MachineTest {
  protected:
    // A role tells its test that it is where the test waits for it to be.
    static void Say(const char* text) {
        std::printf("%s\n", text);
        std::fflush(stdout);
    }
    // Time for another process or thread to fall asleep in the wait that it announced.
    static void LetItWait() { Sleep(100); }

    static HANDLE OpenMutex() { return OpenMutexW(SYNCHRONIZE, FALSE, kName); }
    static HANDLE OpenEvent() { return OpenEventW(EVENT_ALL_ACCESS, FALSE, kName); }
};

}  // namespace

TEST_F(SyncTest, ANamedObjectExistsWhileAProcessHoldsIt) {
    if (Role() == "holder") {
        ASSERT_NE(CreateEventW(nullptr, TRUE, TRUE, kName), nullptr);
        Say("created");
        return Sleep(kLong);
    }
    EXPECT_EQ(OpenEvent(), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    BackgroundProcess holder = StartRole("holder");
    ASSERT_TRUE(holder.WaitForOutput("created"));

    // 1. It is found, and its state is the holder's.
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, kName);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    CloseHandle(event);
    // 2. The name belongs to a kind.
    EXPECT_EQ(OpenMutex(), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(CreateMutexW(nullptr, FALSE, kName), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    // 3. It goes with its last holder, however that ends, and a new one begins anew.
    holder.Kill();
    EXPECT_EQ(OpenEvent(), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    event = CreateEventW(nullptr, FALSE, FALSE, kName);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    const HANDLE second = OpenEvent();
    CloseHandle(event);
    EXPECT_TRUE(SetEvent(second));
    CloseHandle(second);
    EXPECT_EQ(OpenEvent(), nullptr);
}

TEST_F(SyncTest, NamesAndRights) {
    EXPECT_EQ(CreateMutexW(nullptr, FALSE, TEXT("Global\\a\\b")), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    const HANDLE upper = CreateEventW(nullptr, TRUE, FALSE, TEXT("Local\\Name"));
    EXPECT_EQ(OpenEventW(SYNCHRONIZE, FALSE, TEXT("Local\\name")), nullptr);
    const HANDLE same = OpenEventW(SYNCHRONIZE, FALSE, TEXT("Name"));
    EXPECT_EQ(WaitForSingleObject(same, 0), WAIT_TIMEOUT);
    EXPECT_FALSE(SetEvent(same));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_FALSE(ReleaseMutex(upper));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    CloseHandle(upper);
    CloseHandle(same);
    EXPECT_EQ(WaitForSingleObject(same, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(SyncTest, OtherAccountsUseAnObjectOnlyWhenItIsEveryones) {
    if (Role() == "user") {
        const HANDLE ours = OpenMutexW(SYNCHRONIZE, FALSE, TEXT("ours"));
        EXPECT_EQ(WaitForSingleObject(ours, 0), WAIT_OBJECT_0);
        EXPECT_TRUE(ReleaseMutex(ours));
        EXPECT_EQ(OpenMutexW(SYNCHRONIZE, FALSE, TEXT("mine")), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    SECURITY_DESCRIPTOR descriptor{};
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE));
    SECURITY_ATTRIBUTES everyone{sizeof everyone, &descriptor, FALSE};
    const HANDLE ours = CreateMutexW(&everyone, FALSE, TEXT("ours"));
    const HANDLE mine = CreateMutexW(nullptr, FALSE, TEXT("mine"));
    ProcessOptions options;
    options.account = Account{65534, 65534};
    const ProcessResult user = RunRole("user", options);
    EXPECT_EQ(user.exitCode, 0) << user.output;
    CloseHandle(ours);
    CloseHandle(mine);
}

TEST_F(SyncTest, AMutexBelongsToAThreadAsOftenAsItTookIt) {
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
    std::thread([&] {
        EXPECT_EQ(WaitForSingleObject(mutex, 50), WAIT_TIMEOUT);
        EXPECT_FALSE(ReleaseMutex(mutex));
        EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
    }).join();
    EXPECT_TRUE(ReleaseMutex(mutex));
    std::atomic<bool> taken = false;
    std::thread other([&] {
        EXPECT_EQ(WaitForSingleObject(mutex, kLong), WAIT_OBJECT_0);
        taken = true;
        EXPECT_TRUE(ReleaseMutex(mutex));
    });
    LetItWait();
    EXPECT_FALSE(taken);
    EXPECT_TRUE(ReleaseMutex(mutex));
    other.join();
    EXPECT_FALSE(ReleaseMutex(mutex));
    EXPECT_EQ(GetLastError(), ERROR_NOT_OWNER);
    CloseHandle(mutex);
}

TEST_F(SyncTest, AMutexExcludesProcesses) {
    constexpr int kRounds = 400;
    const auto file = ScratchFolder() / "count";
    const auto count = [&] {
        const HANDLE mutex = CreateMutexW(nullptr, FALSE, kName);
        for (int i = 0; i < kRounds; ++i) {
            ASSERT_EQ(WaitForSingleObject(mutex, kLong), WAIT_OBJECT_0);
            WriteWholeFile(file, std::to_string(std::stoi(ReadWholeFile(file)) + 1));
            ASSERT_TRUE(ReleaseMutex(mutex));
        }
        CloseHandle(mutex);
    };
    if (!Role().empty()) return count();
    WriteWholeFile(file, "0");
    BackgroundProcess one = StartRole("one");
    BackgroundProcess two = StartRole("two");
    count();
    EXPECT_EQ(one.Wait().exitCode, 0) << one.Output();
    EXPECT_EQ(two.Wait().exitCode, 0) << two.Output();
    EXPECT_EQ(ReadWholeFile(file), std::to_string(3 * kRounds));
}

TEST_F(SyncTest, ADeadOwnerAbandonsItsMutex) {
    if (Role() == "owner") {
        const HANDLE mutex = OpenMutex();
        ASSERT_EQ(WaitForSingleObject(mutex, kLong), WAIT_OBJECT_0);
        Say("taken");
        return Sleep(kLong);
    }
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, kName);
    const auto nextWait = [&] {
        const DWORD result = WaitForSingleObject(mutex, kLong);
        EXPECT_TRUE(ReleaseMutex(mutex));
        return result;
    };
    // 1. Killed before anybody waits, and while two wait: the first of them learns of it.
    BackgroundProcess early = StartRole("owner");
    ASSERT_TRUE(early.WaitForOutput("taken"));
    early.Kill();
    EXPECT_EQ(nextWait(), WAIT_ABANDONED);
    EXPECT_EQ(nextWait(), WAIT_OBJECT_0);

    BackgroundProcess late = StartRole("owner");
    ASSERT_TRUE(late.WaitForOutput("taken"));
    EXPECT_EQ(WaitForSingleObject(mutex, 50), WAIT_TIMEOUT);
    std::atomic<int> abandoned = 0;
    const auto wait = [&] { abandoned += nextWait() == WAIT_ABANDONED ? 1 : 0; };
    std::thread one(wait);
    std::thread two(wait);
    LetItWait();
    late.Kill();
    one.join();
    two.join();
    EXPECT_EQ(abandoned, 1);

    // 2. A thread that ends is a dead owner, too.
    std::thread([&] { EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0); }).join();
    EXPECT_EQ(nextWait(), WAIT_ABANDONED);
    EXPECT_EQ(nextWait(), WAIT_OBJECT_0);
    CloseHandle(mutex);
}

TEST_F(SyncTest, EventsWakeOneOrAllAcrossProcesses) {
    if (!Role().empty()) {
        const HANDLE event = OpenEvent();
        Say("waiting");
        ASSERT_EQ(WaitForSingleObject(event, kLong), WAIT_OBJECT_0);
        return;
    }
    for (const BOOL manual : {TRUE, FALSE}) {
        const HANDLE event = CreateEventW(nullptr, manual, FALSE, kName);
        std::vector<BackgroundProcess> waiters;
        for (int i = 0; i < 3; ++i) waiters.push_back(StartRole("waiter"));
        for (auto& waiter : waiters) ASSERT_TRUE(waiter.WaitForOutput("waiting"));
        LetItWait();
        const auto running = [&] {
            return std::count_if(waiters.begin(), waiters.end(),
                                 [](const auto& waiter) { return waiter.IsRunning(); });
        };
        EXPECT_EQ(running(), 3);
        ASSERT_TRUE(SetEvent(event));
        if (manual) {
            // A waiter is released though the event is not set any more when it wakes up.
            ASSERT_TRUE(ResetEvent(event));
        } else {
            LetItWait();
            LetItWait();
            EXPECT_EQ(running(), 2);
            // One that is killed takes no setting along.
            for (auto& waiter : waiters) {
                if (waiter.IsRunning() && running() == 2) waiter.Kill();
            }
            ASSERT_TRUE(SetEvent(event));
        }
        for (auto& waiter : waiters) {
            const ProcessResult result = waiter.Wait();
            EXPECT_TRUE(result.exitCode == 0 || result.signal != 0) << result.output;
            EXPECT_FALSE(result.timedOut);
        }
        EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
        CloseHandle(event);
    }
}

TEST_F(SyncTest, WaitsEndInTimeAndDoNotSpin) {
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const HANDLE mutex = CreateMutexW(nullptr, FALSE, kName);
    const HANDLE held = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<bool> owns = false;
    std::thread owner([&] {
        WaitForSingleObject(mutex, kLong);
        owns = true;
        WaitForSingleObject(held, kLong);
        ReleaseMutex(mutex);
    });
    while (!owns) Sleep(1);
    const auto processorTime = ProcessorTimeOfThisProcess();
    for (const HANDLE object : {event, mutex}) {
        const ULONGLONG start = GetTickCount64();
        EXPECT_EQ(WaitForSingleObject(object, 300), WAIT_TIMEOUT);
        const ULONGLONG waited = GetTickCount64() - start;
        EXPECT_GE(waited, 290u);
        EXPECT_LT(waited, 5000u);
    }
    EXPECT_LT((ProcessorTimeOfThisProcess() - processorTime).count(), 100);
    SetEvent(held);
    owner.join();
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
    CloseHandle(mutex);
    CloseHandle(event);
    CloseHandle(held);
}
