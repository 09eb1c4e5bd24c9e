// What a process finds around it: variables, arguments, the clock and libraries.
#include <windows.h>

#include <chrono>
#include <cstdlib>

#include "tests/support/last_error.h"
#include "tests/support/machine.h"

namespace fs = std::filesystem;

namespace {

using EnvironmentTest = MachineTest;

template <typename Result>
Result Call(HMODULE library, const char* name) {
    const FARPROC function = GetProcAddress(library, name);
    EXPECT_NE(function, nullptr) << name;
    return reinterpret_cast<Result (*)()>(reinterpret_cast<void (*)()>(function))();
}

fs::path FileOf(HMODULE module) {
    WCHAR path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(module, path, MAX_PATH);
    EXPECT_EQ(std::char_traits<WCHAR>::length(path), length);
    return path;
}

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
    namespace c = std::chrono;
    const auto before = c::floor<c::milliseconds>(c::system_clock::now());
    SYSTEMTIME t{};
    GetSystemTime(&t);
    const auto after = c::system_clock::now();
    const c::sys_days day = c::year(t.wYear) / c::month(t.wMonth) / c::day(t.wDay);
    const auto told = day + c::hours(t.wHour) + c::minutes(t.wMinute) + c::seconds(t.wSecond) +
                      c::milliseconds(t.wMilliseconds);
    EXPECT_GE(told, before);
    EXPECT_LE(told, after);
    EXPECT_EQ(c::weekday(day).c_encoding(), t.wDayOfWeek);
}

TEST_F(EnvironmentTest, ALibraryLoadsByNameFindsItsExportsAndGoes) {
    const HMODULE library = LoadLibraryW(TEXT("sample_library"));
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(Call<int>(library, "SampleAnswer"), 42);
    EXPECT_EQ(Call<HMODULE>(library, "SampleOwnModule"), library);
    // What it needs from others is not its own export.
    for (const char* name : {"SampleNothing", "GetModuleHandleExW"}) {
        EXPECT_EQ(ErrorOf(GetProcAddress(library, name) != nullptr), ERROR_PROC_NOT_FOUND) << name;
    }

    EXPECT_EQ(FileOf(library).parent_path(), ProgramFolder());
    EXPECT_EQ(FileOf(library).stem(), "sample_library");
    EXPECT_EQ(GetModuleHandleW(TEXT("sample_library")), library);
    // Loaded twice, it goes with the second use.
    EXPECT_EQ(LoadLibraryA(FileOf(library).string().c_str()), library);
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_EQ(Call<int>(library, "SampleAnswer"), 42);
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_EQ(ErrorOf(GetModuleHandleW(TEXT("sample_library"))), ERROR_MOD_NOT_FOUND);
}
