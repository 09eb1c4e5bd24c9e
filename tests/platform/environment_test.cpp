// What a process finds around it: variables, arguments, the clock and libraries.
#include <windows.h>

#include "tests/support/last_error.h"
#include "tests/support/machine.h"
#include "tests/support/machine_port.h"

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

// Every argument that the system can pass arrives as one word.
TEST_F(EnvironmentTest, ArgumentsArriveWithoutLoss) {
    const ProcessResult result =
        RunProgram("argument_echo", {"plain", "", "\xC3\xA4 \xF0\x9F\x98\x80", "\\\"\\"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_EQ(result.output, "70 6c 61 69 6e;;e4 20 d83d de00;5c 22 5c;");
}

TEST_F(EnvironmentTest, ArgumentsNeedNotBeUtf8) {
    SKIP_WITHOUT(kBytesAsNames);
    EXPECT_EQ(RunProgram("argument_echo", {"\xE4"}).output, "dce4;");
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

TEST_F(EnvironmentTest, TheUsersLanguageComesFromItsLocale) {
    SKIP_WITHOUT(kLocales);
    for (const char* name : {"LC_ALL", "LC_MESSAGES"}) SetVariable(name, "");
    const std::pair<const char*, LANGID> languages[] = {
        {"", 0x0409},      {"C", 0x0409},           {"POSIX", 0x0409},      {"C.UTF-8", 0x0409},
        {"de", 0x0407},    {"de_LU.UTF-8", 0x0407}, {"de_AT@euro", 0x0C07}, {"xx_YY", 0x0409},
        {"zh_TW", 0x0404}, {"zh_HK.Big5", 0x0C04},  {"es_ES.UTF-8", 0x0C0A}};
    for (const auto& [locale, language] : languages) {
        SetVariable("LANG", locale);
        EXPECT_EQ(GetUserDefaultUILanguage(), language) << locale;
    }
    SetVariable("LC_MESSAGES", "fr_CA.UTF-8");
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0C0C);
    SetVariable("LC_ALL", "ja_JP.UTF-8");
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0411);
}

TEST_F(EnvironmentTest, TheMachineHasAName) {
    WCHAR host[256] = {};
    DWORD size = 256;
    ASSERT_TRUE(GetComputerNameExW(ComputerNameDnsHostname, host, &size));
    const std::basic_string<WCHAR> name(host);
    EXPECT_EQ(name.size(), size);
    EXPECT_FALSE(name.empty());
    EXPECT_EQ(name.find('.'), name.npos);

    // The old form is its beginning, but for the case of letters.
    WCHAR old[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD oldSize = MAX_COMPUTERNAME_LENGTH + 1;
    ASSERT_TRUE(GetComputerNameW(old, &oldSize));
    EXPECT_EQ(oldSize, std::min<std::size_t>(size, MAX_COMPUTERNAME_LENGTH));
    EXPECT_EQ(CompareStringOrdinal(old, -1, host, static_cast<int>(oldSize), TRUE), CSTR_EQUAL);

    DWORD none = 1;
    EXPECT_EQ(ErrorOf(GetComputerNameExW(ComputerNameDnsHostname, host, &none)), ERROR_MORE_DATA);
    EXPECT_EQ(none, size + 1);
    none = 1;
    EXPECT_EQ(ErrorOf(GetComputerNameW(old, &none)), ERROR_BUFFER_OVERFLOW);
    EXPECT_EQ(none, oldSize + 1);
}
