#include <shlobj.h>
#include <windows.h>

#include <chrono>
#include <string>

#include "tests/support/machine.h"

namespace fs = std::filesystem;

namespace {

using Units = std::basic_string<WCHAR>;

class EnvironmentTest : public MachineTest {
  protected:
    static Units Expand(const WCHAR* text) {
        WCHAR result[256];
        const DWORD size = ExpandEnvironmentStringsW(text, result, 256);
        EXPECT_EQ(size, Units(result).size() + 1);
        return result;
    }
};

}  // namespace

TEST_F(EnvironmentTest, ExpandsTheNamesThatAreSet) {
    ASSERT_TRUE(SetEnvironmentVariableW(TEXT("SnTestOne"), TEXT("1")));
    ASSERT_TRUE(SetEnvironmentVariableW(TEXT("SnTestTwo"), TEXT("%SnTestOne%")));
    EXPECT_EQ(Expand(TEXT("a %SnTestOne%%SNTESTONE% z")), TEXT("a 11 z"));
    EXPECT_EQ(Expand(TEXT("%SnTestTwo%")), TEXT("%SnTestOne%"));  // once
    EXPECT_EQ(Expand(TEXT("50% of %SnNone%SnTestOne%")), TEXT("50% of %SnNone1"));
    EXPECT_EQ(Expand(TEXT("100%")), TEXT("100%"));
    EXPECT_EQ(Expand(TEXT("")), TEXT(""));
    EXPECT_EQ(ExpandEnvironmentStringsW(TEXT("x%SnTestOne%"), nullptr, 0), 3u);
}

TEST_F(EnvironmentTest, VariablesAreSetReadAndRemoved) {
    WCHAR value[8] = {};
    ASSERT_TRUE(SetEnvironmentVariableW(TEXT("SnTest"), TEXT("four")));
    EXPECT_EQ(GetEnvironmentVariableW(TEXT("sntest"), value, 8), 4u);
    EXPECT_EQ(Units(value), TEXT("four"));
    EXPECT_EQ(GetEnvironmentVariableW(TEXT("SnTest"), value, 4), 5u);
    ASSERT_TRUE(SetEnvironmentVariableW(TEXT("SNTEST"), nullptr));
    EXPECT_EQ(GetEnvironmentVariableW(TEXT("SnTest"), value, 8), 0u);
    EXPECT_EQ(GetLastError(), ERROR_ENVVAR_NOT_FOUND);
    EXPECT_FALSE(SetEnvironmentVariableW(TEXT("a=b"), TEXT("x")));
}

TEST_F(EnvironmentTest, APipeIsNoConsole) {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    if (Role().empty()) {
        const ProcessResult child = RunRole("writer");
        EXPECT_EQ(child.exitCode, 0) << child.output;
        EXPECT_NE(child.output.find("by handle"), std::string::npos);
        return;
    }
    DWORD number = 0;
    EXPECT_FALSE(GetConsoleMode(output, &number));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(WriteConsoleW(output, TEXT("x"), 1, &number, nullptr));
    EXPECT_EQ(GetStdHandle(STD_OUTPUT_HANDLE), output);
    EXPECT_TRUE(WriteFile(output, "by handle", 9, &number, nullptr));
    EXPECT_EQ(GetStdHandle(1), INVALID_HANDLE_VALUE);
}

// Every argument that the system can pass arrives as one word, also one that is no UTF-8.
TEST_F(EnvironmentTest, ArgumentsArriveWithoutLoss) {
    const ProcessResult result =
        RunProgram("argument_echo", {"plain", "", "\xC3\xA4 \xF0\x9F\x98\x80", "\xE4"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output,
              "70 6c 61 69 6e\n"
              "\n"
              "e4 20 d83d de00\n"
              "dce4\n");
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

    const ULONGLONG ticks = GetTickCount64();
    Sleep(30);
    EXPECT_GE(GetTickCount64() - ticks, 29u);
}

TEST_F(EnvironmentTest, ProgramsDataHasAFolderOfTheMachine) {
    WCHAR path[MAX_PATH] = {};
    ASSERT_EQ(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path),
              S_OK);
    EXPECT_TRUE(fs::is_directory(path));
    EXPECT_EQ(fs::path(path).filename(), "ProgramData");
    EXPECT_EQ(SHGetFolderPathW(nullptr, 0x7777, nullptr, SHGFP_TYPE_CURRENT, path), E_INVALIDARG);
}
