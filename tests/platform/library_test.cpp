#include <windows.h>

#include "tests/support/last_error.h"
#include "tests/support/machine.h"

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
    EXPECT_EQ(ErrorOf(GetProcAddress(library, "SampleNothing") != nullptr),
              DWORD{ERROR_PROC_NOT_FOUND});
    // What it needs from others is not its own export.
    EXPECT_EQ(ErrorOf(GetProcAddress(library, "GetModuleHandleExW") != nullptr),
              DWORD{ERROR_PROC_NOT_FOUND});

    EXPECT_EQ(FileOf(library).parent_path(), ProgramFolder());
    EXPECT_EQ(FileOf(library).stem(), "sample_library");
    EXPECT_EQ(GetModuleHandleW(TEXT("sample_library")), library);
    // Loaded twice, it goes with the second use.
    EXPECT_EQ(LoadLibraryA(FileOf(library).string().c_str()), library);
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_EQ(Call<int>(library, "SampleAnswer"), 42);
    EXPECT_TRUE(FreeLibrary(library));
    EXPECT_EQ(ErrorOf(GetModuleHandleW(TEXT("sample_library"))), DWORD{ERROR_MOD_NOT_FOUND});
}
