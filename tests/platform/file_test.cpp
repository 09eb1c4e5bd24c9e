#include <io.h>
#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "common/handles.h"
#include "tests/support/file_facts.h"
#include "tests/support/last_error.h"
#include "tests/support/machine.h"
#include "tests/support/wide.h"

namespace fs = std::filesystem;

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class FileTest : public MachineTest {
  protected:
    fs::path File(const char* name) const { return ScratchFolder() / name; }
    fs::path File(const char* name, const std::string& content) const {
        WriteWholeFile(File(name), content);
        return File(name);
    }

    static HANDLE Open(const fs::path& path, DWORD access, DWORD disposition,
                       DWORD share = kShareAll, DWORD flags = FILE_ATTRIBUTE_NORMAL,
                       SECURITY_ATTRIBUTES* security = nullptr) {
        SetLastError(ERROR_SUCCESS);
        return CreateFileW(Wide(path).c_str(), access, share, security, disposition, flags,
                           nullptr);
    }
    // The error of a try to open, or 0; a handle is closed at once.
    static DWORD ErrorOfOpen(const fs::path& path, DWORD access, DWORD disposition,
                             DWORD share = kShareAll) {
        const UniqueHandle file(Open(path, access, disposition, share));
        return ErrorOf(file.get());
    }
    static DWORD ErrorOfCopy(const fs::path& from, const fs::path& to, BOOL failIfExists = FALSE) {
        return ErrorOf(CopyFileW(Wide(from).c_str(), Wide(to).c_str(), failIfExists));
    }
    static DWORD ErrorOfDelete(const fs::path& path) {
        return ErrorOf(DeleteFileW(Wide(path).c_str()));
    }
    static void SetReadOnly(const fs::path& path, bool on) {
        const DWORD attributes = on ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
        ASSERT_TRUE(SetFileAttributesW(Wide(path).c_str(), attributes));
    }
};

using TempFileTest = MachineTest;

fs::path TempPath() {
    WCHAR path[MAX_PATH + 1] = {};
    const DWORD length = GetTempPathW(MAX_PATH + 1, path);
    EXPECT_EQ(length, std::char_traits<WCHAR>::length(path));
    return path;
}

}  // namespace

TEST_F(FileTest, DispositionsTellAndDoWhatTheySay) {
    const fs::path old = File("old", "content");
    EXPECT_EQ(ErrorOfOpen(old, GENERIC_WRITE, CREATE_NEW), ERROR_FILE_EXISTS);
    EXPECT_EQ(ErrorOfOpen(File("none"), GENERIC_READ, OPEN_EXISTING), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOfOpen(File("none") / "x", GENERIC_WRITE, CREATE_ALWAYS), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(ErrorOfOpen(ScratchFolder(), GENERIC_READ, OPEN_EXISTING), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ReadWholeFile(old), "content");

    for (const auto& [disposition, content] :
         {std::pair<DWORD, const char*>{OPEN_ALWAYS, "content"}, {CREATE_ALWAYS, ""}}) {
        const UniqueHandle file(Open(old, GENERIC_READ | GENERIC_WRITE, disposition));
        EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
        EXPECT_EQ(ReadWholeFile(old), content);
    }
}

TEST_F(FileTest, NewFilesBelongToTheirOwnerAlone) {
    CloseHandle(Open(File("mine"), GENERIC_WRITE, CREATE_NEW));
    EXPECT_TRUE(OnlyOwnerMayUse(File("mine")));

    SECURITY_DESCRIPTOR descriptor{};
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    SECURITY_ATTRIBUTES security{sizeof security, &descriptor, FALSE};
    CloseHandle(Open(File("mine2"), GENERIC_WRITE, CREATE_NEW, 0, 0, &security));
    EXPECT_FALSE(EveryoneMayWrite(File("mine2")));
}

TEST_F(FileTest, NewFilesAreEveryonesWhenTheListSaysSo) {
    SKIP_WITHOUT(kFilePermissions);
    SECURITY_DESCRIPTOR descriptor{};
    SECURITY_ATTRIBUTES security{sizeof security, &descriptor, FALSE};
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE));
    CloseHandle(Open(File("ours"), GENERIC_WRITE, CREATE_NEW, 0, 0, &security));
    EXPECT_TRUE(EveryoneMayWrite(File("ours")));
}

TEST_F(FileTest, ShareModesHoldBetweenProcessesAndEndWithThem) {
    const fs::path path = File("shared");
    if (Role() == "writer") {
        Open(path, GENERIC_WRITE, OPEN_EXISTING, FILE_SHARE_READ);
        Say("opened");
        return Sleep(60'000);
    }
    WriteWholeFile(path, "text");
    BackgroundProcess writer = StartRole("writer");
    ASSERT_TRUE(writer.WaitForOutput("opened"));
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_WRITE, CREATE_ALWAYS), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(ReadWholeFile(path), "text");
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_READ, OPEN_EXISTING), ERROR_SUCCESS);
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_READ, OPEN_EXISTING, FILE_SHARE_READ),
              ERROR_SHARING_VIOLATION);
    EXPECT_EQ(ErrorOfDelete(path), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(ErrorOfCopy(File("source", "x"), path), ERROR_SHARING_VIOLATION);
    writer.Kill();
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_WRITE, OPEN_EXISTING, 0), ERROR_SUCCESS);

    // In one process it is the same.
    const HANDLE file = Open(path, GENERIC_READ, OPEN_EXISTING, 0);
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_READ, OPEN_EXISTING), ERROR_SHARING_VIOLATION);
    CloseHandle(file);
    EXPECT_EQ(ErrorOfDelete(path), ERROR_SUCCESS);
}

TEST_F(FileTest, ReadOnlyFilesAreNotDeleted) {
    const fs::path path = File("fixed", "old");
    SetReadOnly(path, true);
    EXPECT_TRUE(GetFileAttributesW(Wide(path).c_str()) & FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(ErrorOfDelete(path), ERROR_ACCESS_DENIED);
    EXPECT_EQ(_waccess(Wide(path).c_str(), 4), 0);
    EXPECT_EQ(_waccess(Wide(path).c_str(), 2), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(_wunlink(Wide(path).c_str()), -1);
    SetReadOnly(path, false);
    EXPECT_EQ(_wunlink(Wide(path).c_str()), 0);
}

TEST_F(FileTest, ReadOnlyFilesAreNotWrittenByAnyone) {
    SKIP_WITHOUT(kFilePermissions);
    const fs::path path = File("fixed", "old");
    SetReadOnly(path, true);
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_WRITE, OPEN_EXISTING), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_WRITE, CREATE_ALWAYS), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOfCopy(File("new", "new"), path), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ReadWholeFile(path), "old");
    SetReadOnly(path, false);
    EXPECT_EQ(ErrorOfCopy(File("new"), path), ERROR_SUCCESS);
}

TEST_F(FileTest, NamesOfFilesAndFolders) {
    const fs::path folder = File("folder");
    ASSERT_TRUE(CreateDirectoryW(Wide(folder).c_str(), nullptr));
    EXPECT_EQ(ErrorOfDelete(folder), ERROR_ACCESS_DENIED);

    // Both slashes name the same file.
    auto backslashes = Wide(File("folder/one", "1"));
    std::ranges::replace(backslashes, WCHAR{'/'}, WCHAR{'\\'});

    const fs::path other = File("other", "2");
    EXPECT_EQ(ErrorOf(MoveFileExW(backslashes.c_str(), Wide(other).c_str(), 0)),
              ERROR_ALREADY_EXISTS);
    ASSERT_TRUE(MoveFileExW(backslashes.c_str(), Wide(other).c_str(),
                            MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
    EXPECT_EQ(ReadWholeFile(other), "1");
}

TEST_F(FileTest, ACopyIsTheWholeFileOrNothing) {
    std::string content(300'000, 'x');
    content.back() = 'y';
    const fs::path source = File("source", content);
    EXPECT_EQ(ErrorOfCopy(source, File("copy")), ERROR_SUCCESS);
    EXPECT_EQ(ReadWholeFile(File("copy")), content);
    EXPECT_EQ(ErrorOfCopy(source, File("copy"), TRUE), ERROR_FILE_EXISTS);
    EXPECT_EQ(ErrorOfCopy(File("none"), File("copy")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOfCopy(source, File("none") / "copy"), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(ErrorOfCopy(source, ScratchFolder()), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOfCopy(source, source), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(ReadWholeFile(File("copy")), content);
}

TEST_F(FileTest, ACopyToAFullDeviceIsAnError) {
    SKIP_WITHOUT(kFullDisk);
    EXPECT_EQ(ErrorOfCopy(File("source", "content"), "/dev/full"), ERROR_DISK_FULL);
    EXPECT_EQ(std::distance(fs::directory_iterator(ScratchFolder()), {}), 1);
}

// A reader that opens the destination again and again sees the old file or the new one.
TEST_F(FileTest, NobodySeesHalfACopy) {
    SKIP_WITHOUT(kWholeCopies);
    const fs::path destination = File("destination");
    if (Role() == "copier") {
        for (int i = 0; i < 40; ++i) {
            ASSERT_EQ(ErrorOfCopy(File(i % 2 == 0 ? "two" : "one"), destination), ERROR_SUCCESS);
        }
        return;
    }
    const std::string one(2'000'000, '1');
    const std::string two(2'000'000, '2');
    const auto expectWhole = [&] {
        const std::string seen = ReadWholeFile(destination);
        EXPECT_TRUE(seen == one || seen == two) << seen.size();
    };
    for (const char* name : {"one", "destination"}) WriteWholeFile(File(name), one);
    WriteWholeFile(File("two"), two);
    BackgroundProcess copier = StartRole("copier");
    while (copier.IsRunning()) expectWhole();
    ASSERT_EQ(copier.Wait().exitCode, 0) << copier.Output();

    // Not even a copier that is killed leaves half.
    for (DWORD i = 0; i < 5; ++i) {
        BackgroundProcess victim = StartRole("copier");
        Sleep(20 + 7 * i);
        victim.Kill();
        expectWhole();
    }
}

TEST_F(FileTest, ACopyFollowsLinksAndKeepsPermissions) {
    SKIP_WITHOUT(kSymbolicLinks);
    const fs::path source = File("source", "new");
    const fs::path target = File("target", "old");
    fs::create_symlink("target", File("link"));
    fs::create_symlink("made", File("dangling"));
    fs::permissions(source, fs::perms(0640));
    fs::permissions(target, fs::perms(0606));
    EXPECT_EQ(ErrorOfCopy(source, File("link")), ERROR_SUCCESS);
    EXPECT_TRUE(fs::is_symlink(File("link")));
    EXPECT_EQ(ReadWholeFile(target), "new");
    EXPECT_EQ(fs::status(target).permissions(), fs::perms(0606));
    EXPECT_EQ(ErrorOfCopy(source, File("dangling")), ERROR_SUCCESS);
    EXPECT_TRUE(fs::is_symlink(File("dangling")));
    EXPECT_EQ(fs::status(File("made")).permissions(), fs::perms(0600));
}

TEST_F(FileTest, ACopyFollowsNoLinkOfAnotherAccounts) {
    if (Role() == "user") {
        fs::create_symlink(File("target"), File("link"));
        fs::create_directory_symlink(ScratchFolder(), File("folder"));
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    RunRole("user", As(kStranger));
    const fs::path source = File("source", "new");
    WriteWholeFile(File("target"), "old");
    EXPECT_EQ(ErrorOfCopy(source, File("link")), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOfCopy(source, File("folder") / "target"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ReadWholeFile(File("target")), "old");
}

TEST_F(FileTest, AFolderStaysWhileItIsHeld) {
    const auto hold = [&](DWORD access, DWORD share) {
        return CreateFileW(Wide(File("folder")).c_str(), access, share, nullptr, OPEN_EXISTING,
                           FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    };
    const auto folder = Wide(File("folder"));
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    WriteWholeFile(File("folder") / "one", "");
    EXPECT_EQ(ErrorOf(RemoveDirectoryW(folder.c_str())), ERROR_DIR_NOT_EMPTY);
    for (const char* other : {"o.e", "only", "xone"}) WriteWholeFile(File("folder") / other, "");
    WIN32_FIND_DATAW found = {};
    const HANDLE search = FindFirstFileW((folder + TEXT("/o*ne")).c_str(), &found);
    EXPECT_EQ(fs::path(found.cFileName), "one");
    EXPECT_EQ(ErrorOf(FindNextFileW(search, &found)), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(FindClose(search));
    for (const char* other : {"o.e", "only", "xone"}) fs::remove(File("folder") / other);
    EXPECT_EQ(ErrorOfDelete(File("folder") / "one"), ERROR_SUCCESS);

    const HANDLE mayGo = hold(DELETE | SYNCHRONIZE, kShareAll);
    EXPECT_EQ(ErrorOf(hold(FILE_READ_DATA, FILE_SHARE_READ)), ERROR_SHARING_VIOLATION);
    EXPECT_TRUE(CloseHandle(mayGo));
    const HANDLE stays = hold(FILE_READ_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE);
    EXPECT_EQ(ErrorOf(RemoveDirectoryW(folder.c_str())), ERROR_SHARING_VIOLATION);
    EXPECT_TRUE(CloseHandle(stays));
    EXPECT_EQ(ErrorOf(RemoveDirectoryW(folder.c_str())), ERROR_SUCCESS);
}

// --- Temporary files -----------------------------------------------------------------------------

TEST_F(TempFileTest, TheFolderBelongsToTheAccount) {
    const fs::path folder = TempPath();
    EXPECT_TRUE(folder.has_root_directory());
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_EQ(folder.filename(), "");  // it ends with a separator
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

    WCHAR path[MAX_PATH];
    EXPECT_EQ(ErrorOf(GetTempFileNameW(Wide(folder / "none").c_str(), TEXT("x"), 0, path)),
              ERROR_DIRECTORY);
}

TEST_F(TempFileTest, AFolderThatOthersPreparedIsRefused) {
    if (Role() == "user") {
        WCHAR path[MAX_PATH + 1];
        EXPECT_EQ(ErrorOf(GetTempPathW(MAX_PATH + 1, path)), ERROR_ACCESS_DENIED);
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
    // A folder that others may look into.
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
    EXPECT_EQ(fs::status(theirs.parent_path()).permissions(), fs::perms(0711));
}
