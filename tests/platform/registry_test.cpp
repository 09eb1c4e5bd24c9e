#include <windows.h>
// (after the types)
#include <shlwapi.h>
#include <wtsapi32.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/accounts.h"
#include "tests/support/file_facts.h"
#include "tests/support/machine.h"
#include "tests/support/registry_tool.h"

namespace {

using Text = std::basic_string<WCHAR>;
using Bytes = std::vector<BYTE>;

constexpr Account kStranger{65534, 65534};
constexpr WCHAR kRoot[] = TEXT("Software\\Verdane\\Test");

// Codes are compared as the signed numbers that the calls return.
constexpr LSTATUS kOk = ERROR_SUCCESS;
constexpr LSTATUS kMissing = ERROR_FILE_NOT_FOUND;
constexpr LSTATUS kDenied = ERROR_ACCESS_DENIED;
constexpr LSTATUS kBadHandle = ERROR_INVALID_HANDLE;
constexpr LSTATUS kBadParameter = ERROR_INVALID_PARAMETER;
constexpr LSTATUS kMoreData = ERROR_MORE_DATA;
constexpr LSTATUS kNoMore = ERROR_NO_MORE_ITEMS;
constexpr LSTATUS kDeleted = ERROR_KEY_DELETED;

class Key {
  public:
    Key() = default;
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { Close(); }
    void Close() {
        if (key_ != nullptr) RegCloseKey(key_);
        key_ = nullptr;
    }
    HKEY get() const { return key_; }
    LSTATUS Open(HKEY parent, const Text& path, REGSAM rights) {
        Close();
        return RegOpenKeyExW(parent, path.c_str(), 0, rights, &key_);
    }
    LSTATUS Create(HKEY parent, const Text& path, REGSAM rights = KEY_ALL_ACCESS,
                   DWORD* disposition = nullptr) {
        Close();
        return RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, rights,
                               nullptr, &key_, disposition);
    }

  private:
    HKEY key_ = nullptr;
};

LSTATUS SetBytes(HKEY key, const Text& name, DWORD type, const Bytes& data) {
    return RegSetValueExW(key, name.c_str(), 0, type, data.data(), static_cast<DWORD>(data.size()));
}

LSTATUS SetNumber(HKEY key, const Text& name, DWORD number) {
    return RegSetValueExW(key, name.c_str(), 0, REG_DWORD, reinterpret_cast<BYTE*>(&number),
                          sizeof number);
}

// The number of a value, or 0xDEAD when it cannot be read.
DWORD Number(HKEY key, const Text& name) {
    DWORD number = 0;
    DWORD size = sizeof number;
    const LSTATUS result = RegQueryValueExW(key, name.c_str(), nullptr, nullptr,
                                            reinterpret_cast<BYTE*>(&number), &size);
    return result == kOk && size == sizeof number ? number : 0xDEAD;
}

LSTATUS Exists(HKEY key, const WCHAR* name) {
    return RegQueryValueExW(key, name, nullptr, nullptr, nullptr, nullptr);
}

Bytes Data(HKEY key, const Text& name) {
    Bytes data(2 << 20);
    auto size = static_cast<DWORD>(data.size());
    EXPECT_EQ(RegQueryValueExW(key, name.c_str(), nullptr, nullptr, data.data(), &size), kOk);
    data.resize(size);
    return data;
}

std::vector<Text> Subkeys(HKEY key) {
    std::vector<Text> names;
    WCHAR name[256];
    for (DWORD size = 256; RegEnumKeyExW(key, static_cast<DWORD>(names.size()), name, &size,
                                         nullptr, nullptr, nullptr, nullptr) == kOk;
         size = 256) {
        names.emplace_back(name, size);
    }
    return names;
}

std::vector<Text> Values(HKEY key) {
    std::vector<Text> names;
    WCHAR name[1024];
    for (DWORD size = 1024; RegEnumValueW(key, static_cast<DWORD>(names.size()), name, &size,
                                          nullptr, nullptr, nullptr, nullptr) == kOk;
         size = 1024) {
        names.emplace_back(name, size);
    }
    return names;
}

LSTATUS DeleteTree(HKEY key, const WCHAR* path) {
    return static_cast<LSTATUS>(SHDeleteKeyW(key, path));
}

LSTATUS CopyTree(HKEY source, const WCHAR* path, HKEY destination) {
    return static_cast<LSTATUS>(SHCopyKeyW(source, path, destination, 0));
}

// A key of the machine that is the test's own, made anew.
class Registry : public MachineTest {
  protected:
    Registry() {
        if (!Role().empty()) return;
        DeleteTree(HKEY_LOCAL_MACHINE, kRoot);
        EXPECT_EQ(root_.Create(HKEY_LOCAL_MACHINE, kRoot), kOk);
    }
    ~Registry() override {
        if (Role().empty()) DeleteTree(HKEY_LOCAL_MACHINE, kRoot);
    }
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;
    HKEY Root() const { return root_.get(); }

  private:
    Key root_;
};

TEST_F(Registry, NamesIgnoreCaseKeepTheirFormAndTheirOrder) {
    Key key;
    for (const WCHAR* name : {TEXT("beta"), TEXT("Gamma"), TEXT("ALPHA"), TEXT("\u00E4hre_"),
                              TEXT("\u00C4HREN"), TEXT("SA_UI")}) {
        ASSERT_EQ(key.Create(Root(), name), kOk);
    }
    DWORD disposition = 0;
    ASSERT_EQ(key.Create(Root(), TEXT("gAMMA\\Sub"), KEY_READ, &disposition), kOk);
    EXPECT_EQ(disposition, static_cast<DWORD>(REG_CREATED_NEW_KEY));
    ASSERT_EQ(key.Create(Root(), TEXT("GAMMA\\sub"), KEY_READ, &disposition), kOk);
    EXPECT_EQ(disposition, static_cast<DWORD>(REG_OPENED_EXISTING_KEY));
    EXPECT_EQ(key.Open(Root(), TEXT("\u00E4hren"), KEY_READ), kOk);
    EXPECT_EQ(Subkeys(Root()),
              (std::vector<Text>{TEXT("ALPHA"), TEXT("beta"), TEXT("Gamma"), TEXT("SA_UI"),
                                 TEXT("\u00C4HREN"), TEXT("\u00E4hre_")}));

    // Values stay where they were made, also when they are written again.
    for (const WCHAR* name : {TEXT("zeta"), TEXT(""), TEXT("Eta"), TEXT("gone"), TEXT("theta")}) {
        EXPECT_EQ(SetNumber(Root(), name, 1), kOk);
    }
    EXPECT_EQ(SetNumber(Root(), TEXT("ZETA"), 7), kOk);
    EXPECT_EQ(RegDeleteValueW(Root(), TEXT("GONE")), kOk);
    EXPECT_EQ(SetNumber(Root(), TEXT("gone"), 1), kOk);
    EXPECT_EQ(Number(Root(), TEXT("Zeta")), 7u);
    EXPECT_EQ(Values(Root()), (std::vector<Text>{TEXT("zeta"), TEXT(""), TEXT("Eta"), TEXT("theta"),
                                                 TEXT("gone")}));
    EXPECT_EQ(RegDeleteValueW(Root(), TEXT("never")), kMissing);
}

TEST_F(Registry, ReadsValuesByTheRulesOfTheBuffer) {
    // An odd number of bytes and no terminator: a text is stored as it is given.
    const Bytes raw = {'a', 0, 'b'};
    ASSERT_EQ(SetBytes(Root(), TEXT("v"), REG_SZ, raw), kOk);
    DWORD type = 0;
    DWORD size = 99;
    EXPECT_EQ(RegQueryValueExW(Root(), TEXT("v"), nullptr, &type, nullptr, &size), kOk);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));

    BYTE buffer[8] = {0xEE, 0xEE, 0xEE, 0xEE};
    size = 2;
    type = 0;
    EXPECT_EQ(RegQueryValueExW(Root(), TEXT("v"), nullptr, &type, buffer, &size), kMoreData);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(RegQueryValueExW(Root(), TEXT("v"), nullptr, nullptr, buffer, &size), kOk);
    EXPECT_EQ(Bytes(buffer, buffer + 4), (Bytes{'a', 0, 'b', 0xEE}));
    EXPECT_EQ(RegQueryValueExW(Root(), TEXT("v"), nullptr, nullptr, buffer, nullptr),
              kBadParameter);
    EXPECT_EQ(Exists(Root(), TEXT("v")), kOk);
    EXPECT_EQ(Exists(Root(), TEXT("w")), kMissing);

    // The default value has no name; it is no other value's business.
    EXPECT_EQ(Exists(Root(), nullptr), kMissing);
    EXPECT_EQ(RegSetValueExW(Root(), nullptr, 0, 0x1234, nullptr, 0), kOk);
    EXPECT_EQ(RegQueryValueExW(Root(), TEXT(""), nullptr, &type, nullptr, &size), kOk);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(type, 0x1234u);

    // Large data, and a change of type and size.
    Bytes large(1 << 20);
    for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<BYTE>(i * 31 >> 4);
    ASSERT_EQ(SetBytes(Root(), TEXT("V"), REG_BINARY, large), kOk);
    EXPECT_EQ(Data(Root(), TEXT("v")), large);
}

TEST_F(Registry, EnumeratesIntoSmallBuffersAndCountsWhatAKeyHolds) {
    Key key;
    ASSERT_EQ(key.Create(Root(), TEXT("subkey")), kOk);
    ASSERT_EQ(key.Create(Root(), TEXT("b\U0001F600")), kOk);
    ASSERT_EQ(SetBytes(Root(), TEXT("name"), REG_BINARY, Bytes(300)), kOk);
    ASSERT_EQ(SetNumber(Root(), TEXT("n"), 5), kOk);
    WCHAR name[7] = {};
    DWORD length = 6;
    EXPECT_EQ(RegEnumKeyExW(Root(), 1, name, &length, nullptr, nullptr, nullptr, nullptr),
              kMoreData);
    length = 7;
    EXPECT_EQ(RegEnumKeyExW(Root(), 1, name, &length, nullptr, nullptr, nullptr, nullptr), kOk);
    EXPECT_EQ(Text(name, length), TEXT("subkey"));
    EXPECT_EQ(RegEnumKeyExW(Root(), 2, name, &length, nullptr, nullptr, nullptr, nullptr), kNoMore);

    length = 4;
    EXPECT_EQ(RegEnumValueW(Root(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
              kMoreData);
    BYTE data[300];
    DWORD size = 299;
    DWORD type = 0;
    length = 5;
    EXPECT_EQ(RegEnumValueW(Root(), 0, name, &length, nullptr, &type, data, &size), kMoreData);
    EXPECT_EQ(size, 300u);
    length = 5;
    EXPECT_EQ(RegEnumValueW(Root(), 0, name, &length, nullptr, &type, data, &size), kOk);
    EXPECT_EQ(Text(name, length), TEXT("name"));
    EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));
    EXPECT_EQ(RegEnumValueW(Root(), 2, name, &length, nullptr, nullptr, nullptr, nullptr), kNoMore);

    DWORD subkeys = 0;
    DWORD longestSubkey = 0;
    DWORD values = 0;
    DWORD longestName = 0;
    DWORD longestData = 0;
    EXPECT_EQ(RegQueryInfoKeyW(Root(), nullptr, nullptr, nullptr, &subkeys, &longestSubkey, nullptr,
                               &values, &longestName, &longestData, nullptr, nullptr),
              kOk);
    EXPECT_EQ((std::vector<DWORD>{subkeys, longestSubkey, values, longestName, longestData}),
              (std::vector<DWORD>{2, 6, 2, 4, 300}));
}

TEST_F(Registry, HandlesDoOnlyWhatTheyWereOpenedFor) {
    ASSERT_EQ(SetNumber(Root(), TEXT("n"), 1), kOk);
    Key key;
    ASSERT_EQ(key.Create(Root(), TEXT("sub")), kOk);
    WCHAR name[16];
    const auto enumerateKeys = [&] {
        DWORD length = 16;
        return RegEnumKeyExW(key.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr);
    };
    const auto enumerateValues = [&] {
        DWORD length = 16;
        return RegEnumValueW(key.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr);
    };
    struct Case {
        REGSAM rights;
        bool queries;
        bool enumerates;
        bool sets;
    };
    for (const Case& expected :
         {Case{KEY_READ, true, true, false}, Case{KEY_READ | KEY_WOW64_64KEY, true, true, false},
          Case{KEY_SET_VALUE, false, false, true}, Case{KEY_QUERY_VALUE, true, false, false},
          Case{KEY_ENUMERATE_SUB_KEYS, false, true, false},
          Case{KEY_READ | KEY_SET_VALUE | KEY_CREATE_SUB_KEY, true, true, true},
          Case{0x20006, false, false, true}, Case{KEY_ALL_ACCESS, true, true, true},
          Case{MAXIMUM_ALLOWED, true, true, true}}) {
        SCOPED_TRACE(expected.rights);
        ASSERT_EQ(key.Open(Root(), TEXT(""), expected.rights), kOk);
        EXPECT_EQ(Exists(key.get(), TEXT("n")), expected.queries ? kOk : kDenied);
        EXPECT_EQ(enumerateValues(), expected.queries ? kOk : kDenied);
        EXPECT_EQ(enumerateKeys(), expected.enumerates ? kOk : kDenied);
        EXPECT_EQ(SetNumber(key.get(), TEXT("n"), 2), expected.sets ? kOk : kDenied);
        EXPECT_EQ(SetNumber(key.get(), TEXT("new"), 2), expected.sets ? kOk : kDenied);
        EXPECT_EQ(RegDeleteValueW(key.get(), TEXT("new")), expected.sets ? kOk : kDenied);
    }
}

TEST_F(Registry, KnowsPathsHandlesAndBounds) {
    Key key;
    const Text longest(255, 'k');
    EXPECT_EQ(key.Create(Root(), longest), kOk);
    EXPECT_EQ(key.Create(Root(), longest + TEXT("k")), kBadParameter);
    EXPECT_EQ(SetNumber(Root(), Text(16383, 'v'), 3), kOk);
    EXPECT_EQ(Number(Root(), Text(16383, 'v')), 3u);
    EXPECT_EQ(SetNumber(Root(), Text(16384, 'v'), 3), kBadParameter);

    ASSERT_EQ(key.Create(Root(), TEXT("a\\b\\")), kOk);
    EXPECT_EQ(key.Open(Root(), TEXT("A\\B\\"), KEY_READ), kOk);
    EXPECT_EQ(key.Open(Root(), TEXT("a\\c"), KEY_READ), kMissing);
    EXPECT_EQ(key.get(), nullptr);
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, TEXT("\\Software"), KEY_READ), ERROR_BAD_PATHNAME);
    EXPECT_EQ(RegOpenKeyExW(Root(), TEXT("a"), 0, KEY_READ, nullptr), kBadParameter);

    // Predefined keys are no handles of their own; opened ones are closed once.
    HKEY same = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, nullptr, 0, KEY_READ, &same), kOk);
    EXPECT_EQ(same, HKEY_CURRENT_USER);
    EXPECT_EQ(RegCloseKey(HKEY_LOCAL_MACHINE), kOk);
    EXPECT_EQ(RegCloseKey(HKEY_CURRENT_USER), kOk);
    EXPECT_EQ(Exists(HKEY_LOCAL_MACHINE, TEXT("no such value")), kMissing);
    HKEY opened = nullptr;
    ASSERT_EQ(RegOpenKeyExW(Root(), TEXT("a"), 0, KEY_READ, &opened), kOk);
    EXPECT_EQ(RegCloseKey(opened), kOk);
    EXPECT_EQ(Exists(opened, TEXT("n")), kBadHandle);
    EXPECT_EQ(RegCloseKey(opened), kBadHandle);
}

TEST_F(Registry, DeletesKeysUnderOpenHandles) {
    Key parent;
    Key child;
    ASSERT_EQ(parent.Create(Root(), TEXT("p")), kOk);
    ASSERT_EQ(child.Create(parent.get(), TEXT("c\\d\\e")), kOk);
    ASSERT_EQ(child.Open(parent.get(), TEXT("c"), KEY_ALL_ACCESS), kOk);
    ASSERT_EQ(SetNumber(child.get(), TEXT("n"), 1), kOk);
    EXPECT_EQ(RegDeleteKeyW(Root(), TEXT("p")), kDenied);
    EXPECT_EQ(RegDeleteKeyW(Root(), TEXT("q")), kMissing);
    EXPECT_EQ(DeleteTree(Root(), TEXT("q")), kMissing);
    EXPECT_EQ(DeleteTree(Root(), TEXT("P")), kOk);
    EXPECT_TRUE(Subkeys(Root()).empty());

    // The handles outlive their keys, and do not come to name the new one.
    Key again;
    ASSERT_EQ(again.Create(Root(), TEXT("p\\c")), kOk);
    WCHAR name[8];
    DWORD length = 8;
    EXPECT_EQ(Exists(child.get(), TEXT("n")), kDeleted);
    EXPECT_EQ(SetNumber(child.get(), TEXT("n"), 1), kDeleted);
    EXPECT_EQ(RegDeleteValueW(child.get(), TEXT("n")), kDeleted);
    EXPECT_EQ(RegEnumKeyExW(child.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
              kDeleted);
    EXPECT_EQ(RegEnumValueW(child.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
              kDeleted);
    EXPECT_EQ(again.Open(parent.get(), TEXT("c"), KEY_READ), kDeleted);
    EXPECT_EQ(again.Create(parent.get(), TEXT("x")), kDeleted);
    ASSERT_EQ(again.Open(Root(), TEXT("p\\c"), KEY_READ), kOk);
    EXPECT_TRUE(Values(again.get()).empty());
    EXPECT_EQ(RegDeleteKeyW(again.get(), TEXT("")), kOk);
    EXPECT_EQ(Exists(again.get(), TEXT("n")), kDeleted);
}

TEST_F(Registry, CopiesTreesOverOthersBetweenHivesAndIntoThemselves) {
    Key key;
    ASSERT_EQ(key.Create(Root(), TEXT("from\\x\\y")), kOk);
    ASSERT_EQ(SetNumber(key.get(), TEXT("deep"), 3), kOk);
    ASSERT_EQ(key.Open(Root(), TEXT("from"), KEY_ALL_ACCESS), kOk);
    ASSERT_EQ(SetNumber(key.get(), TEXT("n"), 1), kOk);
    Key to;
    ASSERT_EQ(to.Create(HKEY_CURRENT_USER, kRoot), kOk);
    ASSERT_EQ(SetNumber(to.get(), TEXT("n"), 9), kOk);
    ASSERT_EQ(SetNumber(to.get(), TEXT("kept"), 4), kOk);
    EXPECT_EQ(CopyTree(Root(), TEXT("nowhere"), to.get()), kMissing);
    EXPECT_EQ(CopyTree(Root(), TEXT("from"), to.get()), kOk);
    EXPECT_EQ(Number(to.get(), TEXT("n")), 1u);
    EXPECT_EQ(Number(to.get(), TEXT("kept")), 4u);
    Key deep;
    ASSERT_EQ(deep.Open(to.get(), TEXT("x\\y"), KEY_READ), kOk);
    EXPECT_EQ(Number(deep.get(), TEXT("deep")), 3u);
    EXPECT_EQ(DeleteTree(HKEY_CURRENT_USER, kRoot), kOk);
    EXPECT_EQ(to.Open(HKEY_CURRENT_USER, kRoot, KEY_READ), kMissing);

    Key inside;
    ASSERT_EQ(inside.Create(Root(), TEXT("from\\x\\in"), 0x20006), kOk);
    EXPECT_EQ(CopyTree(Root(), TEXT("from"), inside.get()), kOk);
    ASSERT_EQ(deep.Open(Root(), TEXT("from\\x\\in\\x\\y"), KEY_READ), kOk);
    EXPECT_EQ(deep.Open(Root(), TEXT("from\\x\\in\\x\\in\\x"), KEY_READ), kMissing);
    Key readOnly;
    ASSERT_EQ(readOnly.Open(Root(), TEXT("from"), KEY_READ), kOk);
    EXPECT_EQ(CopyTree(Root(), TEXT("from\\x"), readOnly.get()), kDenied);
}

TEST_F(Registry, TellsTheFullNameOfAKey) {
    using QueryKey = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
    const HMODULE library = LoadLibraryW(TEXT("ntdll.dll"));
    ASSERT_NE(library, nullptr);
    const FARPROC found = GetProcAddress(library, "NtQueryKey");
    const auto query = reinterpret_cast<QueryKey>(reinterpret_cast<void*>(found));
    ASSERT_NE(query, nullptr);
    constexpr int kName = 3;
    const Text expected = TEXT("\\REGISTRY\\MACHINE\\Software\\Verdane\\Test");
    ULONG size = 0;
    ASSERT_EQ(static_cast<ULONG>(query(Root(), kName, nullptr, 0, &size)), 0xC0000023u);
    ASSERT_EQ(size, sizeof(ULONG) + expected.size() * sizeof(WCHAR));
    std::vector<ULONG> buffer(size / sizeof(ULONG) + 1);
    ASSERT_EQ(query(Root(), kName, buffer.data(), size, &size), 0);
    const Text name(reinterpret_cast<WCHAR*>(buffer.data() + 1), buffer[0] / sizeof(WCHAR));
    EXPECT_TRUE(std::equal(name.begin(), name.end(), expected.begin(), expected.end(),
                           [](WCHAR a, WCHAR b) { return (a | 0x20) == (b | 0x20); }))
        << "the same but for the case of its letters";
    EXPECT_EQ(static_cast<ULONG>(query(Root(), kName, buffer.data(), size - 2, &size)),
              0x80000005u);
    Key key;
    ASSERT_EQ(key.Create(HKEY_CURRENT_USER, TEXT("Software")), kOk);
    std::vector<ULONG> large(200);
    ASSERT_EQ(query(key.get(), kName, large.data(), 800, &size), 0);
    EXPECT_EQ(Text(reinterpret_cast<WCHAR*>(large.data() + 1), 15), TEXT("\\REGISTRY\\USER\\"));
}

TEST_F(Registry, ManyProcessesLoseNoWrite) {
    constexpr DWORD kWrites = 150;
    if (!Role().empty()) {
        const Text part(1, static_cast<WCHAR>(Role()[0]));
        for (DWORD i = 0; i < kWrites; ++i) {
            Key key;
            ASSERT_EQ(key.Create(HKEY_LOCAL_MACHINE, Text(kRoot) + TEXT("\\shared\\") + part), kOk);
            ASSERT_EQ(SetNumber(key.get(), part + static_cast<WCHAR>(0x4E00 + i), i), kOk);
            ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, Text(kRoot) + TEXT("\\shared"), KEY_WRITE), kOk);
            ASSERT_EQ(SetNumber(key.get(), part + static_cast<WCHAR>(0x4E00 + i), i), kOk);
        }
        return;
    }
    std::vector<BackgroundProcess> writers;
    for (const char* part : {"a", "b", "c", "d"}) writers.push_back(StartRole(part));
    for (BackgroundProcess& writer : writers) {
        const ProcessResult result = writer.Wait();
        EXPECT_EQ(result.exitCode, 0) << result.output;
    }
    Key shared;
    ASSERT_EQ(shared.Open(Root(), TEXT("shared"), KEY_READ), kOk);
    EXPECT_EQ(Values(shared.get()).size(), 4 * kWrites);
    EXPECT_EQ(Subkeys(shared.get()).size(), 4u);
    for (const Text& part : Subkeys(shared.get())) {
        Key key;
        ASSERT_EQ(key.Open(shared.get(), part, KEY_READ), kOk);
        EXPECT_EQ(Values(key.get()).size(), kWrites);
        EXPECT_EQ(Number(key.get(), part + static_cast<WCHAR>(0x4E00 + kWrites - 1)), kWrites - 1);
    }
}

TEST_F(Registry, AKilledWriterLeavesTheOldValueOrTheNewOne) {
    constexpr std::size_t kSize = 60'000;
    if (!Role().empty()) {
        Key key;
        ASSERT_EQ(key.Create(HKEY_LOCAL_MACHINE, kRoot), kOk);
        for (BYTE fill = 0;; ++fill) {
            ASSERT_EQ(SetBytes(key.get(), TEXT("v"), REG_BINARY, Bytes(kSize, fill)), kOk);
            std::cout << "writing" << std::endl;
            Key sub;
            ASSERT_EQ(sub.Create(key.get(), TEXT("tree\\branch")), kOk);
            ASSERT_EQ(DeleteTree(key.get(), TEXT("tree")), 0);
        }
    }
    ASSERT_EQ(SetBytes(Root(), TEXT("v"), REG_BINARY, Bytes(kSize, 7)), kOk);
    bool changed = false;
    BYTE last = 7;
    for (int round = 0; round < 25; ++round) {
        BackgroundProcess writer = StartRole("writer");
        ASSERT_TRUE(writer.WaitForOutput("writing"));
        std::this_thread::sleep_for(std::chrono::milliseconds(3 * (round % 12)));
        writer.Kill();
        const Bytes data = Data(Root(), TEXT("v"));
        ASSERT_EQ(data, Bytes(kSize, data.at(0))) << "torn in round " << round;
        changed = changed || data[0] != last;
        last = data[0];
        ASSERT_EQ(SetNumber(Root(), TEXT("after"), 1), kOk);
        // A process of its own finds the same, whatever the writer left behind.
        const ProcessResult reader =
            RunProgram(RegistryTool(), {"query", "HKLM\\Software\\Verdane\\Test", "/v", "after"});
        ASSERT_EQ(reader.exitCode, 0) << reader.errors;
    }
    EXPECT_TRUE(changed) << "no writer was killed at its work";
}

TEST_F(Registry, AnotherAccountReadsTheMachineButWritesOnlyItsOwnHive) {
    if (Role() == "stranger") {
        Key key;
        EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kRoot, KEY_READ), kOk);
        EXPECT_EQ(Number(key.get(), TEXT("n")), 5u);
        EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kRoot, KEY_READ | KEY_SET_VALUE), kDenied);
        EXPECT_EQ(DeleteTree(HKEY_LOCAL_MACHINE, kRoot), kDenied);
        EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, TEXT("Software\\Other")), kDenied);
        EXPECT_EQ(key.Create(HKEY_LOCAL_MACHINE, kRoot, KEY_READ), kOk);
        EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kRoot, MAXIMUM_ALLOWED), kOk);
        EXPECT_EQ(Number(key.get(), TEXT("n")), 5u);
        EXPECT_EQ(SetNumber(key.get(), TEXT("n"), 6), kDenied);
        EXPECT_EQ(key.Create(HKEY_CURRENT_USER, kRoot), kOk);
        EXPECT_EQ(Exists(key.get(), TEXT("mine")), kMissing);
        EXPECT_EQ(SetNumber(key.get(), TEXT("theirs"), 1), kOk);
        return;
    }
    SKIP_UNLESS_ADMINISTRATOR();
    Key mine;
    ASSERT_EQ(mine.Create(HKEY_CURRENT_USER, kRoot), kOk);
    ASSERT_EQ(SetNumber(mine.get(), TEXT("mine"), 1), kOk);
    ASSERT_EQ(SetNumber(Root(), TEXT("n"), 5), kOk);
    ProcessOptions asStranger;
    asStranger.account = kStranger;
    const ProcessResult result = RunRole("stranger", asStranger);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output.find("SKIPPED"), std::string::npos);
    EXPECT_EQ(Exists(mine.get(), TEXT("theirs")), kMissing);
    EXPECT_EQ(Number(Root(), TEXT("n")), 5u);
    EXPECT_TRUE(OnlyOwnerMayUse(EndpointFolder() / "users" / "65534" / "user.db"));
    EXPECT_FALSE(OnlyOwnerMayUse(EndpointFolder() / "registry" / "machine.db"));
}

TEST_F(Registry, OpensTheHiveOfTheImpersonatedUser) {
    SKIP_UNLESS_ADMINISTRATOR();
    LogOn(EndpointFolder(), 3, std::to_string(kStranger.user));
    HANDLE token = nullptr;
    ASSERT_TRUE(WTSQueryUserToken(3, &token));
    ASSERT_TRUE(ImpersonateLoggedOnUser(token));
    CloseHandle(token);
    HKEY hive = nullptr;
    ASSERT_EQ(RegOpenCurrentUser(KEY_ALL_ACCESS, &hive), kOk);
    Key theirs;
    EXPECT_EQ(theirs.Create(hive, kRoot), kOk);
    RegCloseKey(hive);
    // What is opened now is opened with the user's rights; the machine's hive is reached by a
    // connection of the process's own, made before.
    Key key;
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kRoot, KEY_READ), kOk);
    EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kRoot, KEY_WRITE), kDenied);
    EXPECT_EQ(key.Create(Root(), TEXT("new")), kDenied);
    EXPECT_EQ(SetNumber(Root(), TEXT("n"), 1), kOk) << "the handle was opened before";
    ASSERT_TRUE(RevertToSelf());

    EXPECT_EQ(SetNumber(theirs.get(), TEXT("n"), 4), kOk);
    EXPECT_EQ(key.Open(HKEY_CURRENT_USER, kRoot, KEY_READ), kMissing);
    EXPECT_EQ(OwnerOf(EndpointFolder() / "users" / "65534" / "user.db"), kStranger.user);
    ASSERT_EQ(key.Open(HKEY_USERS, Text(TEXT("65534\\")) + kRoot, KEY_READ), kOk);
    EXPECT_EQ(Number(key.get(), TEXT("n")), 4u);
    ASSERT_EQ(RegOpenCurrentUser(KEY_ALL_ACCESS, &hive), kOk);
    EXPECT_EQ(key.Open(hive, kRoot, KEY_READ), kMissing);
    RegCloseKey(hive);
}

}  // namespace
