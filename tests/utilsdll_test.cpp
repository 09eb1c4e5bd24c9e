// The client's utility library: cipher, protected strings, registry, lock, switches, log.
#include <utilsdll.h>

#include <algorithm>
#include <fstream>
#include <future>
#include <map>
#include <regex>
#include <set>

#include "common/handles.h"
#include "common/hex.h"
#include "common/text.h"
#include "tests/support/cipher.h"
#include "tests/support/file_facts.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"

namespace {

namespace fs = std::filesystem;

class UtilsDll : public MachineTest {};

constexpr const WCHAR* kProductKey = TEXT("software\\Verdane\\Sentrel");

// --- Cipher -------------------------------------------------------------------------------------

std::string FromHex(const std::string& text) {
    std::vector<BYTE> bytes;
    HexToBytes(text, bytes);
    return {bytes.begin(), bytes.end()};
}

// A file of that name anywhere below the machine's folder.
fs::path FindFile(const fs::path& endpoint, const std::string& name) {
    for (const auto& entry : fs::recursive_directory_iterator(endpoint)) {
        if (entry.path().filename() == name) return entry.path();
    }
    return {};
}

TEST_F(UtilsDll, ReadsMessagesOfTheDocumentedForm) {
    // Made by an independent program from the description of the form. The first salt spells "Enc
    // ".
    const std::string message = FromHex(
        "456E632001020304FFFFFFFE2C67188FD26B0BC577EA65514E7D0A69BC80758787D2104CCCB0620752");
    EXPECT_EQ(Decrypted(message, TEXT("Grüße ☂")), "configuration");
    EXPECT_EQ(Decrypted("Enc " + message, TEXT("Grüße ☂")), "configuration");
    EXPECT_EQ(Decrypted("Enc Enc " + message, TEXT("Grüße ☂")), "(failed)");

    Encrypted("", nullptr);  // makes the machine's secret, which is known from here on
    std::string secret;
    for (char byte = 0; byte < 32; ++byte) secret += byte;
    WriteWholeFile(FindFile(EndpointFolder(), "machine.key"), secret);
    EXPECT_EQ(Decrypted(FromHex("808182838485868700000001B8CFC7C8B4384B07D895139F9FCBC5C76F39594F"),
                        nullptr),
              "4711");
}

TEST_F(UtilsDll, GivesAllMessagesOfAPassPhraseOneSaltAndEachItsCounter) {
    const fs::path file = ScratchFolder() / "message";
    if (!Role().empty()) return WriteWholeFile(file, Encrypted("other", TEXT("secret")));
    const auto make = [] {
        std::set<std::string> ids;
        for (int i = 0; i < 100; ++i) ids.insert(Encrypted("", TEXT("secret")).substr(0, 12));
        return ids;
    };
    std::future<std::set<std::string>> made[4];
    for (auto& ids : made) ids = std::async(std::launch::async, make);
    std::set<std::string> ids;
    for (auto& others : made) ids.merge(others.get());
    EXPECT_EQ(ids.size(), 400U);

    const auto saltOf = [](const std::string& message) { return message.substr(0, 8); };
    const std::string salt = saltOf(*ids.begin());
    EXPECT_EQ(saltOf(*ids.rbegin()), salt);
    EXPECT_NE(saltOf(Encrypted("", TEXT("Secret"))), salt);
    EXPECT_NE(saltOf(Encrypted("", nullptr)), salt);
    EXPECT_EQ(saltOf(Encrypted("", TEXT("secret"))), salt) << "forgotten for another pass phrase";

    RunRole("encrypt");
    const std::string message = ReadWholeFile(file);
    EXPECT_NE(saltOf(message), salt) << "every process has its own";
    EXPECT_EQ(Decrypted(message, TEXT("secret")), "other");
}

TEST_F(UtilsDll, RefusesEveryChangedOrCutMessage) {
    for (const WCHAR* passPhrase : {static_cast<const WCHAR*>(nullptr), TEXT("pass phrase")}) {
        const std::string message = Encrypted("x", passPhrase);
        ASSERT_EQ(Decrypted(message, passPhrase), "x");
        // Each other salt of a pass phrase costs a stretch; the machine's key stands for them all.
        const std::size_t first = passPhrase == nullptr ? 0 : 8;
        for (std::size_t bit = 8 * first; bit < 8 * message.size(); ++bit) {
            std::string changed = message;
            changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << bit % 8));
            EXPECT_EQ(Decrypted(changed, passPhrase), "(failed)") << "bit " << bit;
        }
        for (std::size_t size = 0; size < message.size(); ++size) {
            EXPECT_EQ(Decrypted(message.substr(0, size), passPhrase), "(failed)") << size;
        }
        EXPECT_EQ(Decrypted(message + '\0', passPhrase), "(failed)");
        // Messages of every size are ones, with the marker and without.
        for (const std::size_t size : {0u, 1u, 15u, 16u, 17u, 8191u, 8192u}) {
            const std::string plain(size, 'x');
            EXPECT_EQ(Decrypted(Encrypted(plain, passPhrase), passPhrase, 8192), plain);
            EXPECT_EQ(Decrypted("Enc " + Encrypted(plain, passPhrase), passPhrase, 8192), plain);
        }
    }
}

TEST_F(UtilsDll, RefusesAnotherPassPhraseAndASmallBuffer) {
    const std::string message = Encrypted("plain text", TEXT("Pass phrase"));
    for (const WCHAR* wrong : {TEXT("pass phrase"), TEXT("\"Pass phrase\""), TEXT("Pass phrase "),
                               TEXT(""), static_cast<const WCHAR*>(nullptr)}) {
        EXPECT_EQ(Decrypted(message, wrong), "(failed)");
    }
    EXPECT_EQ(Decrypted(message, TEXT("Pass phrase"), 10), "plain text");
    EXPECT_EQ(Decrypted(message, TEXT("Pass phrase"), 9), "(failed)");
    EXPECT_EQ(Decrypted(Encrypted("empty", TEXT("")), TEXT("")), "empty");

    std::string output(kCipherOverhead + 3, '#');
    DWORD size = kCipherOverhead + 2;
    EXPECT_NE(encrypt_buffer("abc", 3, output.data(), &size, TEXT("p")), 0);
    EXPECT_EQ(size, kCipherOverhead + 2);
    EXPECT_EQ(output, std::string(kCipherOverhead + 3, '#'));
}

TEST_F(UtilsDll, ProcessesAgreeOnOneDefaultKeyFromTheStart) {
    if (!Role().empty()) {
        return WriteWholeFile(ScratchFolder() / Role(), Encrypted("it is me", nullptr));
    }
    RunRoles(4);
    for (const char* role : {"0", "1", "2", "3"}) {
        EXPECT_EQ(Decrypted(ReadWholeFile(ScratchFolder() / role), nullptr), "it is me");
    }
    const fs::path file = FindFile(EndpointFolder(), "machine.key");
    EXPECT_TRUE(OnlyOwnerMayUse(file));
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), {}), 1) << "draft left";
    // A damaged key is neither used nor replaced.
    WriteWholeFile(file, std::string(31, 'k'));
    EXPECT_NE(StartRole("0").Wait().exitCode, 0);
    EXPECT_EQ(ReadWholeFile(file), std::string(31, 'k'));
}

TEST(Hex2Bin, ReadsOnlyWholePairsOfDigits) {
    const auto read = [](WStringView text, DWORD size) {
        BYTE bytes[4] = {0xEE, 0xEE, 0xEE, 0xEE};
        const int result = hex2bin(text.data(), static_cast<DWORD>(text.size()), bytes, &size);
        return result == 0 ? BytesToHex(bytes, size) : "failed" + BytesToHex(bytes, 1);
    };
    EXPECT_EQ(read(TEXT("00aBfF"), 3), "00ABFF");
    EXPECT_EQ(read(TEXT(""), 0), "");
    for (const WCHAR* bad :
         {TEXT("00aBf"), TEXT("00aBfG"), TEXT("0x00"), TEXT(" 1"), TEXT("1\uFF11")}) {
        EXPECT_EQ(read(bad, 4), "failedEE");
    }
    EXPECT_EQ(read(TEXT("00aBfF"), 2), "failedEE");
}

// --- Registry -----------------------------------------------------------------------------------

UniqueRegKey Created(HKEY parent, const WCHAR* path) {
    return UniqueRegKey(reg_createkeyW(parent, path));
}

// The text of a value, or "(failed)"; a failure must not touch the outputs.
std::string StringOf(HKEY key, const WCHAR* name) {
    WCHAR untouched = 0;
    WCHAR* text = &untouched;
    DWORD characters = 4711;
    if (!reg_getstringW(key, name, &text, &characters)) {
        EXPECT_EQ(text, &untouched);
        EXPECT_EQ(characters, 4711U);
        return "(failed)";
    }
    EXPECT_EQ(WStringView(text).size(), characters);
    std::string result = WideToUtf8(text);
    reg_free(text);
    return result;
}

void SetRaw(HKEY key, const WCHAR* name, DWORD type, WStringView data) {
    SetRaw(key, TEXT(""), name, type, data.data(), data.size() * sizeof(WCHAR));
}

TEST_F(UtilsDll, ProtectedStringsAreUnreadableAtRest) {
    const UniqueRegKey key = Created(HKEY_LOCAL_MACHINE, TEXT("software\\Other"));
    const std::pair<const WCHAR*, bool (*)(HKEY, const WCHAR*, const WCHAR*)> setters[] = {
        {TEXT("machine"), reg_setstring_encW}, {TEXT("user"), reg_setstring_enc_cuW}};
    for (const auto& [name, set] : setters) {
        for (const WCHAR* text : {TEXT("top secret ☂ 🔒"), TEXT(""), TEXT("SNP1 ABCD")}) {
            ASSERT_TRUE(set(key.get(), name, text));
            EXPECT_EQ(StringOf(key.get(), name), WideToUtf8(text));
            EXPECT_TRUE(reg_is_encrypted_valueW(key.get(), name));
        }
        set(key.get(), name, TEXT("secret"));
        const WString stored = RawText(key.get(), TEXT(""), name);
        EXPECT_EQ(stored.find(TEXT("730065006300720065007400")), WString::npos) << "\"secret\"";
        set(key.get(), name, TEXT("secret"));
        EXPECT_NE(RawText(key.get(), TEXT(""), name), stored);

        WString changed = stored;
        changed.back() = changed.back() == '0' ? WCHAR{'1'} : WCHAR{'0'};
        SetRaw(key.get(), name, REG_SZ, changed);
        EXPECT_EQ(StringOf(key.get(), name), "(failed)");
        EXPECT_TRUE(reg_is_encrypted_valueW(key.get(), name));
    }
    EXPECT_FALSE(reg_is_encrypted_valueW(key.get(), TEXT("missing")));
}

TEST_F(UtilsDll, ProtectionForTheUserShutsOtherAccountsOut) {
    SKIP_UNLESS_ADMINISTRATOR();
    UniqueRegKey key;
    if (!Role().empty()) {
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("software\\Other"), 0, KEY_READ, key.put());
        EXPECT_EQ(StringOf(key.get(), TEXT("machine")), "for all");
        EXPECT_EQ(StringOf(key.get(), TEXT("user")), "(failed)");
        EXPECT_EQ(reg_openkeyW(HKEY_LOCAL_MACHINE, TEXT("software\\Other")), nullptr);
        return;
    }
    key = Created(HKEY_LOCAL_MACHINE, TEXT("software\\Other"));
    ASSERT_TRUE(reg_setstring_encW(key.get(), TEXT("machine"), TEXT("for all")));
    ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("user"), TEXT("for one")));
    RunRole("read", As(kStranger));
}

TEST_F(UtilsDll, PlainStringsComeBackWhateverTheyLookLike) {
    const UniqueRegKey key = Created(HKEY_CURRENT_USER, TEXT("software\\Other"));
    for (const WCHAR* text : {TEXT("plain"), TEXT(""), TEXT("SNP1 ABCD"), TEXT("SNP2 "),
                              TEXT("SNP0 SNP1 00"), TEXT("SNP0 x"), TEXT("SNP3 00")}) {
        ASSERT_TRUE(reg_setstringW(key.get(), TEXT("text"), text));
        EXPECT_EQ(StringOf(key.get(), TEXT("text")), WideToUtf8(text));
        EXPECT_FALSE(reg_is_encrypted_valueW(key.get(), TEXT("text")));
        // What others write is taken as it stands unless it has the protected form.
        SetRaw(key.get(), TEXT("raw"), REG_SZ, text);
        EXPECT_EQ(reg_is_encrypted_valueW(key.get(), TEXT("raw")),
                  WStringView(text) == TEXT("SNP1 ABCD"));
    }
    SetRaw(key.get(), TEXT("raw"), REG_SZ, TEXT("SNP1 of the library"));
    EXPECT_EQ(StringOf(key.get(), TEXT("raw")), "SNP1 of the library");
    SetRaw(key.get(), TEXT("number"), REG_DWORD, TEXT("ab"));
    EXPECT_EQ(StringOf(key.get(), TEXT("number")), "(failed)");
    EXPECT_EQ(StringOf(key.get(), TEXT("missing")), "(failed)");
}

TEST_F(UtilsDll, ReadsNumbersAndLists) {
    const UniqueRegKey key = Created(HKEY_CURRENT_USER, TEXT("software\\Other\\"));
    DWORD number = 7;
    EXPECT_TRUE(reg_setDWORDW(key.get(), TEXT("number"), 0xFFFFFFFF));
    EXPECT_TRUE(reg_getDWORDW(key.get(), TEXT("number"), &number));
    EXPECT_EQ(number, 0xFFFFFFFF);
    SetRaw(key.get(), TEXT("short"), REG_DWORD, TEXT("a"));
    SetRaw(key.get(), TEXT("text"), REG_SZ, TEXT("ab"));
    EXPECT_FALSE(reg_getDWORDW(key.get(), TEXT("short"), &number));
    EXPECT_FALSE(reg_getDWORDW(key.get(), TEXT("text"), &number));
    EXPECT_EQ(number, 0xFFFFFFFF);

    const auto listOf = [&](const WCHAR* name) {
        WCHAR* data = nullptr;
        DWORD bytes = 0;
        if (!reg_getmultistringW(key.get(), name, &data, &bytes)) return std::string("(failed)");
        std::string hex = BytesToHex(reinterpret_cast<const BYTE*>(data), bytes);
        reg_free(data);
        return hex;
    };
    EXPECT_TRUE(reg_setmultistringW(key.get(), TEXT("list"), TEXT("a\0b\0\0beyond")));
    EXPECT_EQ(listOf(TEXT("list")), "61000000620000000000");
    SetRaw(key.get(), TEXT("list"), REG_MULTI_SZ, TEXT("a"));
    EXPECT_EQ(listOf(TEXT("list")), "610000000000");
    EXPECT_TRUE(reg_setmultistringW(key.get(), TEXT("list"), TEXT("")));
    EXPECT_EQ(listOf(TEXT("list")), "00000000");
    EXPECT_EQ(listOf(TEXT("text")), "(failed)");
}

TEST_F(UtilsDll, WalksEveryKeyBeforeItsSubkeys) {
    const UniqueRegKey top = Created(HKEY_CURRENT_USER, TEXT("top"));
    for (const WCHAR* path : {TEXT("b\\x"), TEXT("a\\z\\deep"), TEXT("a\\y"), TEXT("c")}) {
        reg_setDWORDW(Created(top.get(), path).get(), TEXT("n"), 1);
    }
    struct Visits {
        std::string last{};           // ends the walk
        HKEY parentOfGone = nullptr;  // of the key that every visit deletes
        std::string paths{};
    };
    const auto walk = [&](Visits visits) {
        const reg_visitorW visitor = [](HKEY key, const WCHAR* path, void* context) {
            auto& seen = *static_cast<Visits*>(context);
            DWORD count = 0;
            EXPECT_TRUE(reg_getvaluecount(key, &count, 0));
            if (seen.parentOfGone != nullptr) RegDeleteKeyW(seen.parentOfGone, TEXT("c"));
            seen.paths += WideToUtf8(path) + " ";
            return seen.last != WideToUtf8(path);
        };
        const bool isWhole = reg_walk2W(top.get(), TEXT("p"), visitor, &visits);
        return visits.paths + (isWhole ? "." : "...");
    };
    EXPECT_EQ(walk({}), "p\\a p\\a\\y p\\a\\z p\\a\\z\\deep p\\b p\\b\\x p\\c .");
    EXPECT_EQ(walk({"p\\a\\z"}), "p\\a p\\a\\y p\\a\\z ...");
    EXPECT_EQ(walk({"", top.get()}), "p\\a p\\a\\y p\\a\\z p\\a\\z\\deep p\\b p\\b\\x .");
}

// --- Lock ---------------------------------------------------------------------------------------

constexpr const WCHAR* kLockPassword = TEXT("open sesame");

bool AnySetterWrites(HKEY key) {
    const WCHAR* name = TEXT("value");
    return reg_setstringW(key, name, TEXT("t")) || reg_setstring_encW(key, name, TEXT("t")) ||
           reg_setstring_enc_cuW(key, name, TEXT("t")) || reg_setDWORDW(key, name, 1) ||
           reg_setmultistringW(key, name, TEXT("t\0")) || reg_removevalueW(key, TEXT("kept"));
}

TEST_F(UtilsDll, TheLockRefusesWritesThroughEveryHandle) {
    EXPECT_TRUE(sec_set_sa_registry_lock(false));
    EXPECT_FALSE(sec_set_sa_registry_lock(true)) << "without a password";
    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(kLockPassword));
    EXPECT_FALSE(sec_is_registry_locked());
    const UniqueRegKey before =
        Created(HKEY_LOCAL_MACHINE, TEXT("software\\Verdane\\Sentrel\\SA_AV"));
    reg_setDWORDW(before.get(), TEXT("kept"), 1);
    ASSERT_TRUE(sec_set_sa_registry_lock(true));
    EXPECT_TRUE(sec_is_registry_locked());

    const UniqueRegKey parent(reg_openkeyW(HKEY_LOCAL_MACHINE, TEXT("software\\Verdane")));
    HKEY writing = nullptr;
    RegOpenKeyExW(before.get(), nullptr, 0, KEY_SET_VALUE, &writing);
    for (const HKEY key :
         {before.get(), reg_openkeyW(HKEY_LOCAL_MACHINE, kProductKey),
          reg_openkeyW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\verdane\\SENTREL\\sa_av")),
          reg_openkeyW(parent.get(), TEXT("Sentrel\\SA_AV")), reg_openkeyW(before.get(), TEXT("")),
          reg_createkeyW(before.get(), TEXT("")),  // exists: only opened
          writing}) {
        ASSERT_NE(key, nullptr);
        EXPECT_FALSE(AnySetterWrites(key));
    }
    DWORD count = 0;
    EXPECT_TRUE(reg_getvaluecount(before.get(), &count, 0));
    EXPECT_EQ(count, 1U);

    EXPECT_FALSE(Created(HKEY_LOCAL_MACHINE, TEXT("software\\verdane\\sentrel\\new\\deep\\")));
    EXPECT_FALSE(Created(parent.get(), TEXT("SENTREL\\new")));
    EXPECT_FALSE(Created(before.get(), TEXT("new")));
    // Neighbours, and the user's settings, stay open.
    EXPECT_TRUE(AnySetterWrites(parent.get()));
    EXPECT_TRUE(AnySetterWrites(
        Created(HKEY_LOCAL_MACHINE, TEXT("software\\Verdane\\Sentrel2\\new")).get()));
    EXPECT_TRUE(AnySetterWrites(Created(HKEY_CURRENT_USER, kProductKey).get()));

    EXPECT_TRUE(sec_set_sa_registry_lock(false));
    EXPECT_FALSE(sec_is_registry_locked());
    EXPECT_TRUE(AnySetterWrites(before.get()));
    EXPECT_TRUE(Created(before.get(), TEXT("new")));
}

TEST_F(UtilsDll, TheLockLetsWhoKnowsThePasswordPassWithBothBypasses) {
    const auto createNew = [] {
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, TEXT("software\\Verdane\\Sentrel\\new"));
        const UniqueRegKey key =
            Created(HKEY_LOCAL_MACHINE, TEXT("software\\Verdane\\Sentrel\\new"));
        EXPECT_EQ(static_cast<bool>(key), sec_may_write_registry());
        return key && AnySetterWrites(key.get());
    };
    if (!Role().empty()) {
        EXPECT_TRUE(sec_is_registry_locked());
        EXPECT_FALSE(createNew());
        return;
    }
    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(kLockPassword));
    ASSERT_TRUE(sec_set_sa_registry_lock(true));

    // 1. Each of the three conditions is needed.
    UniqueHandle filter(bBypassFsfilter());
    UniqueHandle guardlet(bBypassGuardlet());
    EXPECT_FALSE(cfg_sentrelmanager_cmp_pwd(TEXT("sesame")));
    EXPECT_FALSE(createNew());
    EXPECT_TRUE(cfg_sentrelmanager_cmp_pwd(kLockPassword));
    EXPECT_TRUE(createNew());
    filter.reset();
    EXPECT_FALSE(createNew());
    filter.reset(bBypassFsfilter());
    guardlet.reset();
    EXPECT_FALSE(createNew());
    guardlet.reset(bBypassGuardlet());
    EXPECT_TRUE(createNew());
    EXPECT_TRUE(sec_is_registry_locked()) << "it may pass, but has not unlocked anything";

    // 2. An unlock is for this process, and ends with its lock.
    EXPECT_TRUE(sec_set_sa_registry_lock(false));
    EXPECT_FALSE(sec_is_registry_locked());
    RunRole("other process");
    EXPECT_TRUE(sec_set_sa_registry_lock(true));
    EXPECT_TRUE(sec_is_registry_locked());

    // 3. Another password has to be confirmed anew.
    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(TEXT("another")));
    EXPECT_FALSE(createNew());
}

TEST_F(UtilsDll, TheLockCountsWhileAPasswordIsSetAndInDoubt) {
    constexpr const WCHAR* kLockKey = TEXT("software\\Verdane\\Sentrel\\SA_LOCK");
    const UniqueRegKey key = Created(HKEY_LOCAL_MACHINE, kProductKey);
    SetRaw(HKEY_LOCAL_MACHINE, kLockKey, TEXT("registry_locked"), REG_DWORD, {1, 0, 0, 0});
    EXPECT_FALSE(sec_is_registry_locked());
    EXPECT_TRUE(AnySetterWrites(key.get()));
    for (const std::vector<BYTE>& unreadable : {std::vector<BYTE>{0, 0}, {0, 0, 0, 0, 0}}) {
        ASSERT_TRUE(cfg_sentrelmanager_set_pwd(kLockPassword));
        SetRaw(HKEY_LOCAL_MACHINE, kLockKey, TEXT("registry_locked"), REG_DWORD, unreadable);
        EXPECT_TRUE(sec_is_registry_locked());
        EXPECT_FALSE(AnySetterWrites(key.get()));
        // Without its password the lock goes, and does not come back with the next one.
        ASSERT_TRUE(cfg_sentrelmanager_set_pwd(TEXT("")));
        EXPECT_TRUE(AnySetterWrites(key.get()));
        ASSERT_TRUE(cfg_sentrelmanager_set_pwd(kLockPassword));
        EXPECT_FALSE(sec_is_registry_locked());
    }
}

// --- Switches -----------------------------------------------------------------------------------

int flagOfScan = 0;

// Reads a command line of words that blanks separate: every switch as "value" or "value=argument",
// then all words in their new order.
std::string Scan(const WCHAR* commandLine) {
    static const utils::option options[] = {{TEXT("VPNONLY"), 1, nullptr, 129},
                                            {TEXT("VPNALL"), 0, nullptr, 130},
                                            {TEXT("flag"), 0, &flagOfScan, 5},
                                            {nullptr, 0, nullptr, 0}};
    std::vector<WString> words = SplitText(commandLine, TEXT(" "));
    std::vector<WCHAR*> argv;
    for (WString& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    std::string seen;
    int index = -1;
    int value = 0;
    while ((value = utils::getopt_long(static_cast<int>(words.size()), argv.data(),
                                       TEXT("ab:o::f:"), options, &index)) != -1) {
        seen += value < 128 ? std::string(1, static_cast<char>(value)) : std::to_string(value);
        if (utils::optarg != nullptr) seen += "=" + WideToUtf8(utils::optarg);
        seen += " ";
    }
    seen += "|";
    for (std::size_t i = 1; i < words.size(); ++i) seen += " " + WideToUtf8(argv[i]);
    return seen;
}

TEST(Getopt, FollowsTheConventionsForWideWords) {
    EXPECT_EQ(Scan(TEXT("x -ab x -by -o -oz rest")), "a b=x b=y o o=z | -ab x -by -o -oz rest");
    // Words that are no switches go last, in their order, and take their text along.
    EXPECT_EQ(Scan(TEXT("x Größe -f Ünï☂ 🔒 -a -- -a")), "f=Ünï☂ a | -f Ünï☂ -a -- Größe 🔒 -a");
    EXPECT_EQ(Scan(TEXT("x --VPNONLY=é --VPNO -a --VPNALL")),
              "129=é 129=-a 130 | --VPNONLY=é --VPNO -a --VPNALL");
    EXPECT_EQ(Scan(TEXT("x --VPN --none --VPNALL=1 -x -b")),
              "? ? ? ? ? | --VPN --none --VPNALL=1 -x -b");
    EXPECT_EQ(Scan(TEXT("x --VPNONLY")), "? | --VPNONLY");
    // Characters whose low byte is that of a switch or a dash.
    EXPECT_EQ(Scan(TEXT("x \u012Da -\u0161 -a\u0162")), "? a ? | -\u0161 -a\u0162 \u012Da");
    EXPECT_EQ(Scan(TEXT("x --flag")), std::string(1, '\0') + " | --flag");
    EXPECT_EQ(flagOfScan, 5);
}

// --- Log ----------------------------------------------------------------------------------------

TEST_F(UtilsDll, LinesOfSeveralProcessesStayWhole) {
    SKIP_WITHOUT(kWholeAppends);
    constexpr int kLines = 200;
    if (!Role().empty()) {
        const SN_LOG_HANDLE log = log_initialize(TEXT("SA_TEST"));
        for (unsigned i = 0; i < kLines; ++i) {
            log_debug_fmt(log, TEXT("line %u %s."), i, WString(i * 7 % 900, 'x').c_str());
        }
        return log_deinitialize(log);
    }
    RunRoles(4);
    const std::regex form(
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[(\d+),\d+\] DEBUG line (\d+) (x*)\.\r)");
    std::map<std::string, unsigned> next;
    std::ifstream log(FindFile(EndpointFolder(), "SA_TEST.log"), std::ios::binary);
    for (std::string line; std::getline(log, line);) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, form)) << line;
        EXPECT_EQ(match[2], std::to_string(next[match[1]]++));
        EXPECT_EQ(match[3].length(), std::stoi(match[2]) * 7 % 900);
    }
    EXPECT_EQ(next.size(), 4U);
    for (const auto& [process, lines] : next) EXPECT_EQ(lines, unsigned{kLines}) << process;
}

TEST_F(UtilsDll, ANameCannotForgeALogLine) {
    const SN_LOG_HANDLE log = log_initialize(TEXT("SA_TEST"));
    ASSERT_NE(log, nullptr);
    SetLastError(ERROR_FILE_NOT_FOUND);
    log_error_fmt(log, TEXT("Cannot open file %s (%d)"), TEXT("a\r\nb\t\x1B[2K\u2028\u202Eö"), 7);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    log_deinitialize(log);
    const std::string content = ReadWholeFile(FindFile(EndpointFolder(), "SA_TEST.log"));
    const std::string line = R"(] ERROR Cannot open file a\x0D\x0Ab\x09\x1B[2K\x2028\x202Eö (7))";
    EXPECT_TRUE(content.ends_with(line + "\r\n")) << content;
    EXPECT_EQ(std::count(content.begin(), content.end(), '\n'), 1);

    log_error_fmt(nullptr, TEXT("%s"), TEXT("nowhere"));
    log_deinitialize(nullptr);
    for (const WCHAR* outside : {TEXT("../x"), TEXT("a\\b"), TEXT(".."), TEXT("")}) {
        EXPECT_EQ(log_initialize(outside), nullptr);
    }
}

}  // namespace
