#include <windows.h>

#include <chrono>
#include <cstdlib>

#include "tests/support/machine.h"

namespace {

using EnvironmentTest = MachineTest;

}  // namespace

TEST_F(EnvironmentTest, VariablesOfTheCLibraryAreThoseOfTheProcess) {
    WCHAR value[8] = {};
    ASSERT_EQ(_putenv_s("SnTest", "four"), 0);
    EXPECT_STREQ(std::getenv("SnTest"), "four");
    EXPECT_EQ(GetEnvironmentVariableW(TEXT("SnTest"), value, 8), 4u);
    EXPECT_EQ(_putenv_s("SnTest", ""), 0);
    EXPECT_EQ(std::getenv("SnTest"), nullptr);
}

// Every argument that the system can pass arrives as one word, also one that is no UTF-8.
TEST_F(EnvironmentTest, ArgumentsArriveWithoutLoss) {
    const ProcessResult result =
        RunProgram("argument_echo", {"plain", "", "\xC3\xA4 \xF0\x9F\x98\x80", "\\\"\\"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output, "70 6c 61 69 6e;;e4 20 d83d de00;5c 22 5c;");
    SKIP_WITHOUT(kBytesAsNames);
    EXPECT_EQ(RunProgram("argument_echo", {"\xE4"}).output, "dce4;");
}

TEST_F(EnvironmentTest, TheClockIsTheSystems) {
    const auto before =
        std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    SYSTEMTIME t{};
    GetSystemTime(&t);
    const auto after = std::chrono::system_clock::now();
    namespace c = std::chrono;
    const c::sys_days day = c::year(t.wYear) / c::month(t.wMonth) / c::day(t.wDay);
    const auto told = day + c::hours(t.wHour) + c::minutes(t.wMinute) + c::seconds(t.wSecond) +
                      c::milliseconds(t.wMilliseconds);
    EXPECT_GE(told, before);
    EXPECT_LE(told, after);
    EXPECT_EQ(c::weekday(day).c_encoding(), t.wDayOfWeek);

    constexpr DWORD kStep = 16;  // of the system's ticks, in milliseconds
    const ULONGLONG ticks = GetTickCount64();
    Sleep(2 * kStep);
    EXPECT_GE(GetTickCount64() - ticks, kStep);
}
