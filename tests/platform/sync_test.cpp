#include <windows.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "common/handles.h"
#include "common/security.h"
#include "tests/support/last_error.h"
#include "tests/support/machine.h"

namespace {

constexpr WCHAR kName[] = TEXT("Global\\Sentrel test object");
constexpr DWORD kLong = 20'000;  // milliseconds: longer than anything here takes

using SyncTest = MachineTest;

// Time for another process or thread to fall asleep in the wait that it announced.
void LetItWait() {
    Sleep(100);
}

HANDLE OpenNamedEvent() {
    return OpenEventW(EVENT_ALL_ACCESS, FALSE, kName);
}

}  // namespace

TEST_F(SyncTest, ANamedObjectExistsWhileAProcessHoldsIt) {
    if (Role() == "holder") {
        ASSERT_NE(CreateEventW(nullptr, TRUE, TRUE, kName), nullptr);
        Say("created");
        return Sleep(kLong);
    }
    EXPECT_EQ(ErrorOf(OpenNamedEvent()), ERROR_FILE_NOT_FOUND);
    BackgroundProcess holder = StartRole("holder");
    ASSERT_TRUE(holder.WaitForOutput("created"));

    // 1. It is found, and its state is the holder's.
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, kName);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
    CloseHandle(event);
    // 2. The name belongs to a kind.
    EXPECT_EQ(ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, kName)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(ErrorOf(CreateMutexW(nullptr, FALSE, kName)), ERROR_INVALID_HANDLE);
    // 3. It goes with its last holder, however that ends, and a new one begins anew.
    holder.Kill();
    EXPECT_EQ(ErrorOf(OpenNamedEvent()), ERROR_FILE_NOT_FOUND);
    event = CreateEventW(nullptr, FALSE, FALSE, kName);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    const HANDLE second = OpenNamedEvent();
    CloseHandle(event);
    EXPECT_TRUE(SetEvent(second));
    CloseHandle(second);
    EXPECT_EQ(OpenNamedEvent(), nullptr);
}

TEST_F(SyncTest, OtherAccountsUseAnObjectOnlyWhenItIsEveryones) {
    if (Role() == "user") {
        const HANDLE ours = OpenMutexW(SYNCHRONIZE, FALSE, TEXT("ours"));
        EXPECT_EQ(WaitForSingleObject(ours, 0), WAIT_OBJECT_0);
        EXPECT_TRUE(ReleaseMutex(ours));
        EXPECT_EQ(ErrorOf(OpenMutexW(SYNCHRONIZE, FALSE, TEXT("mine"))), ERROR_ACCESS_DENIED);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    EveryoneAccess everyone;
    const UniqueHandle ours(CreateMutexW(everyone.get(), FALSE, TEXT("ours")));
    const UniqueHandle mine(CreateMutexW(nullptr, FALSE, TEXT("mine")));
    RunRole("user", As(kStranger));
}

TEST_F(SyncTest, AMutexBelongsToAThreadAsOftenAsItTookIt) {
    const UniqueHandle owned(CreateMutexW(nullptr, TRUE, nullptr));
    const HANDLE mutex = owned.get();
    EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
    std::thread([&] {
        EXPECT_EQ(WaitForSingleObject(mutex, 50), WAIT_TIMEOUT);
        EXPECT_EQ(ErrorOf(ReleaseMutex(mutex)), ERROR_NOT_OWNER);
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
    EXPECT_EQ(ErrorOf(ReleaseMutex(mutex)), ERROR_NOT_OWNER);
}

TEST_F(SyncTest, ADeadOwnerAbandonsItsMutex) {
    if (Role() == "owner") {
        const HANDLE mutex = OpenMutexW(SYNCHRONIZE, FALSE, kName);
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
        const HANDLE event = OpenNamedEvent();
        Say("waiting");
        ASSERT_EQ(WaitForSingleObject(event, kLong), WAIT_OBJECT_0);
        return;
    }
    for (const BOOL manual : {TRUE, FALSE}) {
        const UniqueHandle event(CreateEventW(nullptr, manual, FALSE, kName));
        std::vector<BackgroundProcess> waiters;
        for (int i = 0; i < 3; ++i) waiters.push_back(StartRole("waiter"));
        for (auto& waiter : waiters) ASSERT_TRUE(waiter.WaitForOutput("waiting"));
        LetItWait();
        const auto running = [&] {
            return std::ranges::count_if(waiters, &BackgroundProcess::IsRunning);
        };
        EXPECT_EQ(running(), 3);
        ASSERT_TRUE(SetEvent(event.get()));
        if (manual) {
            // A waiter is released though the event is not set any more when it wakes up.
            ASSERT_TRUE(ResetEvent(event.get()));
        } else {
            LetItWait();
            LetItWait();
            ASSERT_EQ(running(), 2);
            // One that is killed takes no setting along.
            std::ranges::find_if(waiters, &BackgroundProcess::IsRunning)->Kill();
            ASSERT_TRUE(SetEvent(event.get()));
        }
        for (auto& waiter : waiters) {
            const ProcessResult result = waiter.Wait();
            EXPECT_TRUE(result.exitCode == 0 || result.signal != 0) << result.output;
            EXPECT_FALSE(result.timedOut);
        }
        EXPECT_EQ(WaitForSingleObject(event.get(), 0), WAIT_TIMEOUT);
    }
}

TEST_F(SyncTest, WaitsEndInTimeAndDoNotSpin) {
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    const UniqueHandle mutex(CreateMutexW(nullptr, TRUE, nullptr));
    const auto processorTime = ProcessorTimeOfThisProcess();
    std::thread([&] {
        for (const HANDLE object : {event.get(), mutex.get()}) {
            const ULONGLONG start = GetTickCount64();
            EXPECT_EQ(WaitForSingleObject(object, 300), WAIT_TIMEOUT);
            const ULONGLONG waited = GetTickCount64() - start;
            EXPECT_GE(waited, 290u);
            EXPECT_LT(waited, 5000u);
        }
    }).join();
    EXPECT_LT((ProcessorTimeOfThisProcess() - processorTime).count(), 100);
    EXPECT_TRUE(ReleaseMutex(mutex.get()));
}
