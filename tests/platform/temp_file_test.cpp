#include <windows.h>

#include <set>

#include "tests/support/file_facts.h"
#include "tests/support/last_error.h"
#include "tests/support/machine.h"
#include "tests/support/machine_port.h"
#include "tests/support/wide.h"

namespace fs = std::filesystem;

namespace {

class TempFileTest : public MachineTest {
  protected:
    static fs::path TempPath() {
        WCHAR path[MAX_PATH + 1] = {};
        const DWORD length = GetTempPathW(MAX_PATH + 1, path);
        EXPECT_EQ(length, std::char_traits<WCHAR>::length(path));
        return path;
    }
};

}  // namespace

TEST_F(TempFileTest, TheFolderBelongsToTheAccountAlone) {
    const fs::path folder = TempPath();
    EXPECT_TRUE(folder.has_root_directory());
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_EQ(folder.filename(), "");  // it ends with a separator
    EXPECT_TRUE(OnlyOwnerMayUse(folder.parent_path()));
    EXPECT_EQ(TempPath(), folder);

    WCHAR small[4];
    EXPECT_EQ(GetTempPathW(4, small), Wide(folder).size() + 1);
}

TEST_F(TempFileTest, FilesAreNewPrivateAndNeverTheSame) {
    const fs::path folder = TempPath();
    std::set<fs::path> paths;
    for (int i = 0; i < 200; ++i) {
        WCHAR path[MAX_PATH];
        const UINT number = GetTempFileNameW(Wide(folder).c_str(), TEXT("sncfg"), 0, path);
        ASSERT_NE(number, 0u);
        const fs::path file = path;
        EXPECT_TRUE(paths.insert(file).second);
        EXPECT_EQ(file.parent_path(), folder.parent_path());
        EXPECT_EQ(file.filename().string().substr(0, 3), "snc");
        ASSERT_TRUE(OnlyOwnerMayUse(file));
        ASSERT_EQ(fs::file_size(file), 0u);
    }
    EXPECT_EQ(FilesInTemporaryFolder().size(), 200u);

    WCHAR named[MAX_PATH];
    EXPECT_EQ(GetTempFileNameW(Wide(folder).c_str(), TEXT("x"), 0x1234, named), 0x1234u);
    EXPECT_FALSE(fs::exists(named));
    EXPECT_EQ(ErrorOf(GetTempFileNameW(Wide(folder / "none").c_str(), TEXT("x"), 0, named)),
              DWORD{ERROR_DIRECTORY});
}

TEST_F(TempFileTest, AFolderThatOthersPreparedIsRefused) {
    if (Role() == "user") {
        WCHAR path[MAX_PATH + 1];
        EXPECT_EQ(ErrorOf(GetTempPathW(MAX_PATH + 1, path)), DWORD{ERROR_ACCESS_DENIED});
        return;
    }
    SKIP_WITHOUT(kSymbolicLinks);
    // A link to a place where somebody else could read along.
    const fs::path folder = TempPath().parent_path();
    fs::remove(folder);
    fs::create_directory(ScratchFolder() / "trap");
    fs::permissions(ScratchFolder() / "trap", fs::perms(0700));
    fs::create_directory_symlink(ScratchFolder() / "trap", folder);
    RunRole("user");
    // A folder that others may enter.
    fs::remove(folder);
    fs::create_directory(folder);
    fs::permissions(folder, fs::perms(0755));
    RunRole("user");
}

TEST_F(TempFileTest, EveryAccountHasAFolderOfItsOwn) {
    if (Role() == "user") {
        WriteWholeFile(ScratchFolder() / "theirs", TempPath().string());
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    const fs::path mine = TempPath();
    RunRole("user", As(kStranger));
    const fs::path theirs = ReadWholeFile(ScratchFolder() / "theirs");
    EXPECT_NE(theirs, mine);
    EXPECT_TRUE(OnlyOwnerMayUse(theirs.parent_path()));
}
