#include <windows.h>
// (after the types)
#include <shlwapi.h>

#include <cstring>

#include "tests/support/file_facts.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"

namespace {

using Text = std::basic_string<WCHAR>;
using Bytes = std::vector<BYTE>;

constexpr WCHAR kRoot[] = TEXT("Software\\Verdane\\Test");

// Codes are compared as the signed numbers that the calls return.
constexpr LSTATUS kOk = ERROR_SUCCESS;
constexpr LSTATUS kMissing = ERROR_FILE_NOT_FOUND;
constexpr LSTATUS kDenied = ERROR_ACCESS_DENIED;

// A key that is opened or made, one after another.
class Key : public UniqueRegKey {
  public:
    Key() = default;
    Key(HKEY parent, const Text& path) { EXPECT_EQ(Create(parent, path), kOk); }

    LSTATUS Open(HKEY parent, const Text& path, REGSAM rights) {
        return RegOpenKeyExW(parent, path.c_str(), 0, rights, put());
    }
    LSTATUS Create(HKEY parent, const Text& path, REGSAM rights = KEY_ALL_ACCESS) {
        return RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, rights,
                               nullptr, put(), nullptr);
    }
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
    DWORD number = 0xDEAD;
    const Bytes data = RawValue(key, TEXT(""), name.c_str());
    if (data.size() == sizeof number) std::memcpy(&number, data.data(), sizeof number);
    return number;
}

LSTATUS Exists(HKEY key, const WCHAR* name) {
    return RegQueryValueExW(key, name, nullptr, nullptr, nullptr, nullptr);
}

// Finds the name that RegEnumKeyExW or RegEnumValueW gives at an index.
template <typename Enumerate>
LSTATUS FindName(Enumerate enumerate, HKEY key, std::size_t index = 0, Text* name = nullptr) {
    WCHAR buffer[1024];
    DWORD size = 1024;
    const LSTATUS result = enumerate(key, static_cast<DWORD>(index), buffer, &size, nullptr,
                                     nullptr, nullptr, nullptr);
    if (result == kOk && name != nullptr) name->assign(buffer, size);
    return result;
}
template <typename Enumerate>
std::vector<Text> Names(Enumerate enumerate, HKEY key) {
    std::vector<Text> names;
    for (Text name; FindName(enumerate, key, names.size(), &name) == kOk;) names.push_back(name);
    return names;
}

// A key of the machine that is the test's own.
class Registry : public MachineTest {
  protected:
    HKEY Root() const { return root_.get(); }

  private:
    const Key root_ = Role().empty() ? Key(HKEY_LOCAL_MACHINE, kRoot) : Key();
};

TEST_F(Registry, NamesIgnoreCaseKeepTheirFormAndTheirOrder) {
    Key key;
    for (const WCHAR* path :
         {TEXT("beta"), TEXT("Gamma"), TEXT("ALPHA"), TEXT("\u00E4hre"), TEXT("\u00C4HREN"),
          TEXT("SA_UI"), TEXT("gAMMA\\Sub"), TEXT("GAMMA\\sub")}) {
        ASSERT_EQ(key.Create(Root(), path), kOk);
    }
    EXPECT_EQ(Names(RegEnumKeyExW, Key(Root(), TEXT("gamma")).get()),
              std::vector{Text(TEXT("Sub"))});
    EXPECT_EQ(key.Open(Root(), TEXT("\u00E4hren"), KEY_READ), kOk);
    EXPECT_EQ(Names(RegEnumKeyExW, Root()),
              (std::vector<Text>{TEXT("ALPHA"), TEXT("beta"), TEXT("Gamma"), TEXT("SA_UI"),
                                 TEXT("\u00E4hre"), TEXT("\u00C4HREN")}));

    // Values stay where they were made, also when they are written again.
    for (const WCHAR* name : {TEXT("zeta"), TEXT(""), TEXT("Eta"), TEXT("gone"), TEXT("theta")}) {
        EXPECT_EQ(SetNumber(Root(), name, 1), kOk);
    }
    EXPECT_EQ(SetNumber(Root(), TEXT("ZETA"), 7), kOk);
    EXPECT_EQ(RegDeleteValueW(Root(), TEXT("GONE")), kOk);
    EXPECT_EQ(SetNumber(Root(), TEXT("gone"), 1), kOk);
    EXPECT_EQ(Number(Root(), TEXT("Zeta")), 7u);
    EXPECT_EQ(RegDeleteValueW(Root(), TEXT("never")), kMissing);
    SKIP_WITHOUT(kOrderOfValues);
    EXPECT_EQ(Names(RegEnumValueW, Root()), (std::vector<Text>{TEXT("zeta"), TEXT(""), TEXT("Eta"),
                                                               TEXT("theta"), TEXT("gone")}));
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
    EXPECT_EQ(RegQueryValueExW(Root(), TEXT("v"), nullptr, nullptr, buffer, &size),
              ERROR_MORE_DATA);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(RegQueryValueExW(Root(), TEXT("v"), nullptr, nullptr, buffer, &size), kOk);
    EXPECT_EQ(Bytes(buffer, buffer + 4), (Bytes{'a', 0, 'b', 0xEE}));

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
    EXPECT_EQ(RawValue(Root(), TEXT(""), TEXT("v")), large);
}

TEST_F(Registry, HandlesDoOnlyWhatTheyWereOpenedFor) {
    ASSERT_EQ(SetNumber(Root(), TEXT("n"), 1), kOk);
    Key key(Root(), TEXT("sub"));
    const struct {
        REGSAM rights;
        bool queries, enumerates, sets;
    } cases[] = {{KEY_READ, true, true, false},
                 {KEY_READ | KEY_WOW64_64KEY, true, true, false},
                 {KEY_SET_VALUE, false, false, true},
                 {KEY_QUERY_VALUE, true, false, false},
                 {KEY_ENUMERATE_SUB_KEYS, false, true, false},
                 {KEY_READ | KEY_SET_VALUE | KEY_CREATE_SUB_KEY, true, true, true},
                 {0x20006, false, false, true},
                 {KEY_ALL_ACCESS, true, true, true},
                 {MAXIMUM_ALLOWED, true, true, true}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.rights);
        ASSERT_EQ(key.Open(Root(), TEXT(""), expected.rights), kOk);
        EXPECT_EQ(Exists(key.get(), TEXT("n")), expected.queries ? kOk : kDenied);
        EXPECT_EQ(FindName(RegEnumValueW, key.get()), expected.queries ? kOk : kDenied);
        EXPECT_EQ(FindName(RegEnumKeyExW, key.get()), expected.enumerates ? kOk : kDenied);
        EXPECT_EQ(SetNumber(key.get(), TEXT("n"), 2), expected.sets ? kOk : kDenied);
        EXPECT_EQ(SetNumber(key.get(), TEXT("new"), 2), expected.sets ? kOk : kDenied);
        EXPECT_EQ(RegDeleteValueW(key.get(), TEXT("new")), expected.sets ? kOk : kDenied);
    }
}

TEST_F(Registry, AKilledWriterLeavesTheOldValueOrTheNewOne) {
    constexpr std::size_t kSize = 60'000;
    if (Role() == "reader") {
        Key key;
        ASSERT_EQ(key.Open(HKEY_LOCAL_MACHINE, kRoot, KEY_READ), kOk);
        ASSERT_EQ(Number(key.get(), TEXT("after")), 1u);
        return;
    }
    if (Role() == "writer") {
        const Key key(HKEY_LOCAL_MACHINE, kRoot);
        for (BYTE fill = 0;; ++fill) {
            ASSERT_EQ(SetBytes(key.get(), TEXT("v"), REG_BINARY, Bytes(kSize, fill)), kOk);
            Say("writing");
            const Key branch(key.get(), TEXT("tree\\branch"));
            ASSERT_EQ(SHDeleteKeyW(key.get(), TEXT("tree")), kOk);
        }
    }
    ASSERT_EQ(SetBytes(Root(), TEXT("v"), REG_BINARY, Bytes(kSize, 7)), kOk);
    bool changed = false;
    BYTE last = 7;
    for (DWORD round = 0; round < 25; ++round) {
        BackgroundProcess writer = StartRole("writer");
        ASSERT_TRUE(writer.WaitForOutput("writing"));
        Sleep(3 * (round % 12));
        writer.Kill();
        const Bytes data = RawValue(Root(), TEXT(""), TEXT("v"));
        ASSERT_EQ(data, Bytes(kSize, data.at(0))) << "torn in round " << round;
        changed = changed || data[0] != last;
        last = data[0];
        ASSERT_EQ(SetNumber(Root(), TEXT("after"), 1), kOk);
        // A process of its own finds the same, whatever the writer left behind.
        RunRole("reader");
    }
    EXPECT_TRUE(changed) << "no writer was killed at its work";
}

TEST_F(Registry, AnotherAccountReadsTheMachineButWritesOnlyItsOwnHive) {
    if (Role() == "stranger") {
        Key key;
        EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kRoot, KEY_READ), kOk);
        EXPECT_EQ(Number(key.get(), TEXT("n")), 5u);
        EXPECT_EQ(key.Open(HKEY_LOCAL_MACHINE, kRoot, KEY_READ | KEY_SET_VALUE), kDenied);
        EXPECT_EQ(SHDeleteKeyW(HKEY_LOCAL_MACHINE, kRoot), kDenied);
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
    const Key mine(HKEY_CURRENT_USER, kRoot);
    ASSERT_EQ(SetNumber(mine.get(), TEXT("mine"), 1), kOk);
    ASSERT_EQ(SetNumber(Root(), TEXT("n"), 5), kOk);
    RunRole("stranger", As(kStranger));
    EXPECT_EQ(Exists(mine.get(), TEXT("theirs")), kMissing);
    EXPECT_EQ(Number(Root(), TEXT("n")), 5u);
    EXPECT_TRUE(OnlyOwnerMayUse(EndpointFolder() / "users" / "65534" / "user.db"));
    EXPECT_FALSE(OnlyOwnerMayUse(EndpointFolder() / "registry" / "machine.db"));
}

}  // namespace
