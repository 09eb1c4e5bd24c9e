#include <io.h>
#include <windows.h>

#include <cerrno>
#include <string>

#include "tests/support/file_facts.h"
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
        const HANDLE file = Open(path, access, disposition, share);
        const DWORD error = GetLastError();
        if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
        return file == INVALID_HANDLE_VALUE ? error : ERROR_SUCCESS;
    }
    static void Write(HANDLE file, const std::string& text) {
        DWORD written = 0;
        ASSERT_TRUE(
            WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
        ASSERT_EQ(written, text.size());
    }
    static DWORD ErrorOfCopy(const fs::path& from, const fs::path& to, BOOL failIfExists = FALSE) {
        SetLastError(ERROR_SUCCESS);
        return CopyFileW(Wide(from).c_str(), Wide(to).c_str(), failIfExists) ? ERROR_SUCCESS
                                                                             : GetLastError();
    }
    static DWORD ErrorOfDelete(const fs::path& path) {
        return DeleteFileW(Wide(path).c_str()) ? ERROR_SUCCESS : GetLastError();
    }
    static void SetReadOnly(const fs::path& path, bool on) {
        const DWORD attributes = on ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
        ASSERT_TRUE(SetFileAttributesW(Wide(path).c_str(), attributes));
    }
    static std::size_t EntriesOf(const fs::path& folder) {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    }
};

}  // namespace

TEST_F(FileTest, DispositionsTellAndDoWhatTheySay) {
    const fs::path old = File("old", "content");
    EXPECT_EQ(ErrorOfOpen(old, GENERIC_WRITE, CREATE_NEW), ERROR_FILE_EXISTS);
    EXPECT_EQ(ErrorOfOpen(File("none"), GENERIC_READ, OPEN_EXISTING), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOfOpen(File("none"), GENERIC_WRITE, TRUNCATE_EXISTING), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOfOpen(File("none") / "x", GENERIC_WRITE, CREATE_ALWAYS), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(ErrorOfOpen(old, GENERIC_READ, TRUNCATE_EXISTING), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ErrorOfOpen(ScratchFolder(), GENERIC_READ, OPEN_EXISTING), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ReadWholeFile(old), "content");

    HANDLE file = Open(old, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    CloseHandle(file);
    EXPECT_EQ(ReadWholeFile(old), "content");
    file = Open(old, GENERIC_WRITE, CREATE_ALWAYS);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    CloseHandle(file);
    EXPECT_EQ(ReadWholeFile(old), "");
    file = Open(File("new"), GENERIC_WRITE, CREATE_ALWAYS);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    CloseHandle(file);
}

TEST_F(FileTest, ReadsWritesAndMovesItsPointer) {
    HANDLE file = Open(File("data"), GENERIC_READ | GENERIC_WRITE, CREATE_NEW);
    Write(file, "0123456789");
    LARGE_INTEGER position{};
    position.QuadPart = -4;
    ASSERT_TRUE(SetFilePointerEx(file, position, &position, FILE_END));
    EXPECT_EQ(position.QuadPart, 6);
    char text[8] = {};
    DWORD read = 0;
    ASSERT_TRUE(ReadFile(file, text, sizeof text, &read, nullptr));
    EXPECT_EQ(std::string(text, read), "6789");
    ASSERT_TRUE(ReadFile(file, text, sizeof text, &read, nullptr));
    EXPECT_EQ(read, 0u);

    position.QuadPart = 3;
    ASSERT_TRUE(SetFilePointerEx(file, position, nullptr, FILE_BEGIN));
    ASSERT_TRUE(SetEndOfFile(file));
    ASSERT_TRUE(FlushFileBuffers(file));
    LARGE_INTEGER size{};
    ASSERT_TRUE(GetFileSizeEx(file, &size));
    EXPECT_EQ(size.QuadPart, 3);
    position.QuadPart = -1;
    EXPECT_FALSE(SetFilePointerEx(file, position, nullptr, FILE_BEGIN));
    EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
    CloseHandle(file);
    EXPECT_FALSE(ReadFile(file, text, sizeof text, &read, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);

    file = Open(File("data"), GENERIC_READ, OPEN_EXISTING);
    EXPECT_FALSE(WriteFile(file, "x", 1, &read, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    CloseHandle(file);
}

TEST_F(FileTest, AppendsOfSeveralProcessesNeverOverwriteEachOther) {
    constexpr int kLines = 300;
    const auto append = [&](char mark) {
        const HANDLE log = Open(File("log"), FILE_APPEND_DATA, OPEN_ALWAYS);
        for (int i = 0; i < kLines; ++i) Write(log, std::string(40, mark) + "\n");
        CloseHandle(log);
    };
    if (!Role().empty()) return append('c');
    BackgroundProcess child = StartRole("child");
    append('p');
    ASSERT_EQ(child.Wait().exitCode, 0);
    const std::string log = ReadWholeFile(File("log"));
    EXPECT_EQ(log.size(), 2u * kLines * 41);
    for (std::size_t at = 0; at < log.size(); at += 41) {
        ASSERT_EQ(log.substr(at, 41), std::string(40, log[at]) + "\n");
    }
}

TEST_F(FileTest, NewFilesBelongToTheirOwnerUnlessEveryoneIsAllowed) {
    CloseHandle(Open(File("mine"), GENERIC_WRITE, CREATE_NEW));
    EXPECT_TRUE(OnlyOwnerMayUse(File("mine")));

    SECURITY_DESCRIPTOR descriptor{};
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    SECURITY_ATTRIBUTES security{sizeof security, &descriptor, FALSE};
    CloseHandle(Open(File("mine2"), GENERIC_WRITE, CREATE_NEW, 0, 0, &security));
    EXPECT_FALSE(EveryoneMayWrite(File("mine2")));
    ASSERT_TRUE(SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE));
    CloseHandle(Open(File("ours"), GENERIC_WRITE, CREATE_NEW, 0, 0, &security));
    EXPECT_TRUE(EveryoneMayWrite(File("ours")));
}

TEST_F(FileTest, ShareModesHoldBetweenProcessesAndEndWithThem) {
    const fs::path path = File("shared");
    if (Role() == "writer") {
        Open(path, GENERIC_WRITE, OPEN_EXISTING, FILE_SHARE_READ);
        std::printf("opened\n");
        std::fflush(stdout);
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

TEST_F(FileTest, DeletesOnClose) {
    const HANDLE file = Open(File("gone"), GENERIC_WRITE | DELETE, CREATE_NEW, kShareAll,
                             FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE);
    EXPECT_TRUE(fs::exists(File("gone")));
    CloseHandle(file);
    EXPECT_FALSE(fs::exists(File("gone")));
}

TEST_F(FileTest, ReadOnlyFilesAreNeitherWrittenNorDeletedByAnyone) {
    const fs::path path = File("fixed", "old");
    SetReadOnly(path, true);
    EXPECT_TRUE(GetFileAttributesW(Wide(path).c_str()) & FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_WRITE, OPEN_EXISTING), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOfOpen(path, GENERIC_WRITE, CREATE_ALWAYS), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOfDelete(path), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOfCopy(File("new", "new"), path), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ReadWholeFile(path), "old");
    EXPECT_EQ(_waccess(Wide(path).c_str(), 4), 0);
    EXPECT_EQ(_waccess(Wide(path).c_str(), 2), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(_wunlink(Wide(path).c_str()), -1);
    EXPECT_EQ(errno, EACCES);

    SetReadOnly(path, false);
    EXPECT_FALSE(GetFileAttributesW(Wide(path).c_str()) & FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(_waccess(Wide(path).c_str(), 6), 0);
    EXPECT_EQ(ErrorOfCopy(File("new"), path), ERROR_SUCCESS);
    EXPECT_EQ(_wunlink(Wide(path).c_str()), 0);
    EXPECT_EQ(_waccess(Wide(path).c_str(), 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(FileTest, NamesOfFilesAndFolders) {
    const fs::path folder = File("folder");
    ASSERT_TRUE(CreateDirectoryW(Wide(folder).c_str(), nullptr));
    EXPECT_FALSE(CreateDirectoryW(Wide(folder).c_str(), nullptr));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_FALSE(CreateDirectoryW(Wide(File("none") / "folder").c_str(), nullptr));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(GetFileAttributesW(Wide(folder).c_str()) & FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_EQ(ErrorOfDelete(folder), ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOfDelete(File("none")), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(ErrorOfDelete(File("none") / "file"), ERROR_PATH_NOT_FOUND);

    // Both slashes name the same file.
    auto backslashes = Wide(folder / "one");
    for (WCHAR& unit : backslashes) {
        if (unit == '/') unit = '\\';
    }
    File("folder/one", "1");
    EXPECT_EQ(GetFileAttributesW(backslashes.c_str()),
              GetFileAttributesW(Wide(folder / "one").c_str()));
    EXPECT_NE(GetFileAttributesW(backslashes.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_FALSE(RemoveDirectoryW(Wide(folder).c_str()));
    EXPECT_EQ(GetLastError(), ERROR_DIR_NOT_EMPTY);

    const fs::path other = File("other", "2");
    EXPECT_FALSE(MoveFileExW(backslashes.c_str(), Wide(other).c_str(), 0));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    ASSERT_TRUE(MoveFileExW(backslashes.c_str(), Wide(other).c_str(), MOVEFILE_REPLACE_EXISTING));
    EXPECT_EQ(ReadWholeFile(other), "1");
    EXPECT_TRUE(RemoveDirectoryW(Wide(folder).c_str()));
}

TEST_F(FileTest, FullPathsAreAbsoluteAndFitOrTellTheirSize) {
    const fs::path before = fs::current_path();
    fs::current_path(ScratchFolder());
    WCHAR path[MAX_PATH];
    WCHAR* name = nullptr;
    const DWORD length = GetFullPathNameW(TEXT("a/../b.txt"), MAX_PATH, path, &name);
    EXPECT_EQ(fs::path(path), fs::current_path() / "b.txt");
    EXPECT_EQ(std::basic_string<WCHAR>(name), TEXT("b.txt"));
    EXPECT_EQ(std::char_traits<WCHAR>::length(path), length);
    EXPECT_EQ(GetFullPathNameW(TEXT("b.txt"), length, path, nullptr), length + 1);
    fs::current_path(before);
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

    if (FileOnFullDisk().empty()) GTEST_SKIP() << "no full disk here";
    EXPECT_EQ(ErrorOfCopy(source, FileOnFullDisk()), ERROR_DISK_FULL);
    const HANDLE full = Open(FileOnFullDisk(), GENERIC_WRITE, OPEN_EXISTING);
    DWORD written = 1;
    EXPECT_FALSE(WriteFile(full, "x", 1, &written, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    EXPECT_EQ(written, 0u);
    CloseHandle(full);
    EXPECT_EQ(EntriesOf(ScratchFolder()), 2u);
}

// A reader that opens the destination again and again sees the old file or the new one.
TEST_F(FileTest, NobodySeesHalfACopy) {
    const fs::path destination = File("destination");
    if (Role() == "copier") {
        for (int i = 0; i < 40; ++i) {
            ASSERT_EQ(ErrorOfCopy(File(i % 2 == 0 ? "two" : "one"), destination), ERROR_SUCCESS);
        }
        return;
    }
    const std::string one(2'000'000, '1');
    const std::string two(2'000'000, '2');
    for (const char* name : {"one", "destination"}) WriteWholeFile(File(name), one);
    WriteWholeFile(File("two"), two);
    BackgroundProcess copier = StartRole("copier");
    while (copier.IsRunning()) {
        const std::string seen = ReadWholeFile(destination);
        ASSERT_TRUE(seen == one || seen == two) << seen.size();
    }
    ASSERT_EQ(copier.Wait().exitCode, 0) << copier.Output();

    // Not even a copier that is killed leaves half.
    for (int i = 0; i < 5; ++i) {
        BackgroundProcess victim = StartRole("copier");
        Sleep(static_cast<DWORD>(20 + 7 * i));
        victim.Kill();
        const std::string seen = ReadWholeFile(destination);
        ASSERT_TRUE(seen == one || seen == two) << seen.size();
    }
}

TEST_F(FileTest, ACopyFollowsLinksAndKeepsPermissions) {
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
    EXPECT_EQ(fs::status(File("made")).permissions(), fs::perms(0640));
}

TEST_F(FileTest, OrdinaryUsersAreHeldToPermissions) {
    const fs::path path = File("private");
    if (Role() == "user") {
        EXPECT_EQ(ErrorOfCopy(File("source"), path), ERROR_ACCESS_DENIED);
        EXPECT_EQ(ErrorOfOpen(path, GENERIC_WRITE, OPEN_EXISTING), ERROR_ACCESS_DENIED);
        EXPECT_EQ(_waccess(Wide(path).c_str(), 2), -1);
        EXPECT_EQ(_waccess(Wide(path).c_str(), 4), 0);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    WriteWholeFile(path, "old");
    WriteWholeFile(File("source"), "new");
    ProcessOptions options;
    options.account = Account{65534, 65534};
    const ProcessResult user = RunRole("user", options);
    EXPECT_EQ(user.exitCode, 0) << user.output;
    EXPECT_EQ(ReadWholeFile(path), "old");
}

TEST_F(FileTest, MappingsShareTheFile) {
    HANDLE file = Open(File("empty", ""), GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
    EXPECT_EQ(CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_INVALID);
    CloseHandle(file);

    file = Open(File("data", "abc"), GENERIC_READ | GENERIC_WRITE, OPEN_EXISTING);
    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, 0, nullptr);
    ASSERT_NE(mapping, nullptr);
    CloseHandle(file);
    auto* const view = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    CloseHandle(mapping);
    EXPECT_EQ(std::string(view, 3), "abc");
    view[1] = 'X';
    EXPECT_TRUE(UnmapViewOfFile(view));
    EXPECT_FALSE(UnmapViewOfFile(view));
    EXPECT_EQ(ReadWholeFile(File("data")), "aXc");
}
