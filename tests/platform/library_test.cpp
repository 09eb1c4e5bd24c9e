#include <windows.h>

#include <string>

#include "tests/support/machine.h"
#include "tests/support/wide.h"

namespace fs = std::filesystem;

namespace {

using LibraryTest = MachineTest;

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

TEST_F(LibraryTest, LoadsByNameFindsItsExportsAndGoes) {
    const HMODULE library = LoadLibraryW(TEXT("sample_library"));
    ASSERT_NE(library, nullptr);
    EXPECT_EQ(Call<int>(library, "SampleAnswer"), 42);
    EXPECT_EQ(Call<HMODULE>(library, "SampleOwnModule"), library);
    EXPECT_EQ(GetProcAddress(library, "SampleNothing"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    // What it needs from others is not its own export.
    EXPECT_EQ(GetProcAddress(library, "GetModuleHandleExW"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);

    EXPECT_EQ(FileOf(library).parent_path(), ProgramFolder());
    EXPECT_EQ(FileOf(library).stem(), "sample_library");
    EXPECT_EQ(GetModuleHandleW(TEXT("sample_library")), library);
    // Loaded twice, it goes with the second use.
    EXPECT_EQ(LoadLibraryA(FileOf(library).string().c_str()), library);
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_EQ(Call<int>(library, "SampleAnswer"), 42);
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_EQ(GetModuleHandleW(TEXT("sample_library")), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

TEST_F(LibraryTest, TellsAMissingLibraryFromAFileThatIsNone) {
    EXPECT_EQ(LoadLibraryW(TEXT("sn_no_such_library")), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(LoadLibraryW(Wide(ScratchFolder() / "none.dll").c_str()), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    WriteWholeFile(ScratchFolder() / "text.dll", "this is no library");
    EXPECT_EQ(LoadLibraryW(Wide(ScratchFolder() / "text.dll").c_str()), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_BAD_EXE_FORMAT);
}

TEST_F(LibraryTest, TheSystemsLibrariesAreThere) {
    for (const WCHAR* name : {TEXT("kernel32"), TEXT("KERNEL32.DLL")}) {
        const HMODULE library = LoadLibraryW(name);
        ASSERT_NE(library, nullptr);
        EXPECT_NE(GetProcAddress(library, "GetLastError"), nullptr);
        EXPECT_EQ(GetModuleHandleW(name), library);
        EXPECT_TRUE(FreeLibrary(library));
    }
}

TEST_F(LibraryTest, TheProgramKnowsItself) {
    EXPECT_EQ(FileOf(nullptr), PathOfThisProgram());
    EXPECT_EQ(FileOf(GetModuleHandleW(nullptr)), PathOfThisProgram());
    WCHAR small[4] = {};
    EXPECT_EQ(GetModuleFileNameW(nullptr, small, 4), 4u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(std::char_traits<WCHAR>::length(small), 3u);
}
