// The registry class, the user's section of a configuration file, and the reduction to VPN
// connections.
#include "registry/registry.h"

#include <product_registry.h>
#include <utilsdll.h>

#include <set>

#include "common/handles.h"
#include "common/xml_file.h"
#include "registry/user_configuration.h"
#include "registry/vpn_only.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"
#include "tests/support/secrets.h"
#include "tests/support/wide.h"

namespace {

const WString kTestKey = TEXT(SENTREL_PRODUCT_KEY "\\SA_TEST");

using RegistryClass = MachineTest;

TEST_F(RegistryClass, ReadsByItsOwnRulesAndWritesOnlyWhereItMay) {
    CRegistry registry(true, false);
    ASSERT_TRUE(registry.CreateKey(kTestKey));
    DWORD number = 77;
    ASSERT_TRUE(registry.SetString(TEXT("s"), TEXT("A"), false));
    EXPECT_EQ(registry.LastSize(), 2u) << "characters with the terminator";
    EXPECT_TRUE(registry.GetDWORD(TEXT("s"), number)) << "four bytes, whatever the type";
    EXPECT_EQ(registry.LastType(), REG_SZ);
    EXPECT_EQ(number, DWORD{'A'});
    ASSERT_TRUE(registry.SetString(TEXT("s"), TEXT("AB"), true));
    EXPECT_FALSE(registry.GetDWORD(TEXT("s"), number));
    EXPECT_EQ(registry.LastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(number, DWORD{'A'});

    std::vector<WString> texts;
    const WCHAR list[] = {'a', 0, 'b', 'c', 0, 0, 'x', 0, 0};
    const auto readList = [&](DWORD size) {
        const bool isSet =
            registry.SetMultiString(TEXT("m"), reinterpret_cast<const BYTE*>(list), size);
        return isSet && registry.GetMultiString(TEXT("m"), texts);
    };
    EXPECT_TRUE(readList(sizeof list));
    EXPECT_EQ(texts, (std::vector<WString>{TEXT("a"), TEXT("bc")}));
    EXPECT_FALSE(readList(1)) << "not one character";
    EXPECT_TRUE(readList(2)) << "a list without terminators";
    EXPECT_EQ(texts.back(), TEXT("a"));
    std::vector<WString> names;
    EXPECT_TRUE(registry.EnumValueNames(names));
    EXPECT_EQ(std::set(names.begin(), names.end()), (std::set<WString>{TEXT("m"), TEXT("s")}));
    EXPECT_TRUE(registry.ValueExists(TEXT("m")) && !registry.ValueExists(TEXT("missing")));
    std::unique_ptr<BYTE[]> bytes;
    DWORD size = 0;
    const BYTE blob[] = {'a', 0, 'b'};
    EXPECT_TRUE(registry.SetBinary(TEXT("b"), blob, sizeof blob));
    EXPECT_TRUE(registry.GetBinary(TEXT("b"), bytes, size));
    EXPECT_EQ(std::string(bytes.get(), bytes.get() + size), std::string("a\0b", 3));
    EXPECT_EQ(registry.LastType(), REG_BINARY);
    EXPECT_FALSE(registry.GetBinary(TEXT("missing"), bytes, size) || bytes);

    // A read-only object refuses every write and records nothing of it.
    CRegistry reader(true, true);
    const BYTE byte = 0;
    ASSERT_TRUE(reader.OpenKey(kTestKey));
    EXPECT_FALSE(reader.GetDWORD(TEXT("missing"), number));
    EXPECT_FALSE(reader.SetDWORD(TEXT("s"), 2) || reader.SetString(TEXT("s"), TEXT("x"), false) ||
                 reader.SetBinary(TEXT("s"), &byte, 1) ||
                 reader.SetMultiString(TEXT("s"), &byte, 1) || reader.DeleteValue(TEXT("s")) ||
                 reader.CreateKey(TEXT("k")) || reader.DeleteKeyTree(kTestKey, true) ||
                 reader.CopyKey(TEXT("a"), TEXT("b")));
    EXPECT_EQ(reader.LastError(), DWORD{ERROR_FILE_NOT_FOUND});
    WString text;
    EXPECT_TRUE(reader.GetString(TEXT("s"), text)) << "a protected text comes back plain";
    EXPECT_EQ(text, TEXT("AB"));
}

TEST_F(RegistryClass, CopiesMovesAndEnumerates) {
    CRegistry deep(true, false);
    CRegistry registry(true, false);
    ASSERT_TRUE(deep.CreateKey(kTestKey + TEXT("\\From\\Deep")) && registry.CreateKey(kTestKey));
    ASSERT_TRUE(deep.SetDWORD(TEXT("n"), 9));
    EXPECT_TRUE(registry.CopyKey(TEXT("From"), TEXT("Copy")));
    EXPECT_TRUE(registry.MoveKey(TEXT("From"), TEXT("To")));
    EXPECT_FALSE(registry.MoveKey(TEXT("From"), TEXT("Nowhere"))) << "nothing left to move";
    EXPECT_EQ(registry.LastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_FALSE(registry.MoveKey(TEXT(""), TEXT("Nowhere"))) << "the current key stays";
    std::vector<WString> names;
    EXPECT_TRUE(registry.EnumSubKeys(names));
    EXPECT_EQ(names, (std::vector<WString>{TEXT("Copy"), TEXT("To")}));
    CRegistry empty(true, false);
    EXPECT_TRUE(empty.CreateKey(kTestKey + TEXT("\\Empty")) && !empty.EnumValueNames(names));

    CRegistry moved(true, true);
    DWORD number = 0;
    EXPECT_TRUE(moved.OpenKey(kTestKey + TEXT("\\To\\Deep")) && moved.GetDWORD(TEXT("n"), number));
    EXPECT_EQ(number, 9u);
    EXPECT_FALSE(registry.DeleteSubKeyTree(TEXT("")));
    EXPECT_TRUE(registry.DeleteSubKeyTree(TEXT("To")));
    EXPECT_TRUE(registry.DeleteKeyTree(kTestKey, true));
    EXPECT_FALSE(CRegistry(true, true).OpenKey(kTestKey));
}

// --- The user's section -------------------------------------------------------------------------

class UserConfiguration : public MachineTest {
  protected:
    UserConfiguration() { EXPECT_TRUE(Created(TEXT(""))); }

    // The section of the current user, as text.
    std::string Export(const WCHAR* password = TEXT("pass phrase")) {
        TiXmlDocument document;
        document.Parse("<sentrel_configuration><user_configuration/><av/></sentrel_configuration>");
        ExportUserConfiguration(document.RootElement(), SecureText(password), 0);
        EXPECT_TRUE(SaveXmlFile(Wide(file_), document));
        return ReadWholeFile(file_);
    }

    void ImportFile(const WCHAR* password = TEXT("pass phrase")) {
        ImportUserConfiguration(Wide(file_), SecureText(password), 0);
    }
    void Import(const std::string& values) {
        WriteWholeFile(file_, "<sentrel_configuration><user_configuration>" + values +
                                  "</user_configuration></sentrel_configuration>");
        ImportFile();
    }

    // A key of the user's, below the product key.
    static WString Below(const WString& path) { return kProductKey + (TEXT("\\") + path); }
    static UniqueRegKey Created(const WString& path) {
        return UniqueRegKey(reg_createkeyW(HKEY_CURRENT_USER, Below(path).c_str()));
    }
    // A value as text, whatever its type; or what there is not.
    static std::string Stored(const WString& path, const WCHAR* name = TEXT("n")) {
        CRegistry key(false, true);
        WString text;
        DWORD number = 0;
        std::vector<WString> texts;
        if (!key.OpenKey(Below(path))) return "no key";
        if (key.GetString(name, text)) return WideToUtf8(text);
        if (key.GetMultiString(name, texts)) {
            for (const WString& one : texts) text += one + TEXT(";");
            return WideToUtf8(text);
        }
        return key.GetDWORD(name, number) ? std::to_string(number) : "no value";
    }

    std::filesystem::path file_ = ScratchFolder() / "config.xml";
};

TEST_F(UserConfiguration, ComesBackAsItWas) {
    EXPECT_NE(Export().find("<user_configuration />"), std::string::npos) << "nothing to carry";

    const WString example = TEXT("SA_UI\\Example");
    const WString secret(1000, WCHAR{0x20AC});
    const UniqueRegKey key = Created(example);
    ASSERT_TRUE(reg_setstringW(key.get(), TEXT("PlainText"), TEXT("äbc &#x41; <&>")));
    ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("Secret"), secret.c_str()));
    ASSERT_TRUE(reg_setDWORDW(key.get(), TEXT("Flags"), 4294967295u));
    ASSERT_TRUE(reg_setmultistringW(key.get(), TEXT("List"), TEXT("a\0b\0")));
    SetRaw(key.get(), TEXT(""), TEXT("Blob"), REG_BINARY, {1});

    const std::string section = Export();
    for (const char* expected :
         {R"(<value key="SA_UI\Example" name="Flags" type="4" data="-1" />)",
          R"(<value key="SA_UI\Example" name="List" type="7" data="61000000620000000000" />)",
          R"(<value key="SA_UI\Example" name="Blob" type="3" />)",
          R"(name="Secret" type="1" data="EncX )"}) {
        EXPECT_NE(section.find(expected), std::string::npos) << expected << section;
    }
    EXPECT_EQ(section.find("user_configuration"), section.rfind("<user_configuration") + 1);
    EXPECT_LT(section.find("<av"), section.find("<user_configuration")) << "the last child";

    ASSERT_TRUE(CRegistry(false, false).DeleteKeyTree(Below(TEXT("SA_UI")), false));
    ImportFile(TEXT("wrong phrase"));
    EXPECT_EQ(Stored(TEXT("SA_UI")), "no key") << "a wrong password writes nothing at all";
    ImportFile();
    EXPECT_EQ(Stored(example, TEXT("PlainText")), "äbc &#x41; <&>");
    EXPECT_EQ(Stored(example, TEXT("Secret")), WideToUtf8(secret));
    EXPECT_EQ(Stored(example, TEXT("Flags")), "4294967295");
    EXPECT_EQ(Stored(example, TEXT("List")), "a;b;");
    EXPECT_EQ(Stored(example, TEXT("Blob")), "no value");
    EXPECT_TRUE(reg_is_encrypted_valueW(Created(example).get(), TEXT("Secret")));
}

TEST_F(UserConfiguration, LeavesGatewayKeysOut) {
    const std::pair<const WCHAR*, bool> keys[] = {
        {TEXT("SA_UI\\VPN-10.0.0.1"), false},
        {TEXT("SA_UI\\vpn-10.0.0.22"), false},
        {TEXT("SA_UI\\VPN-10.0.0"), true},
        {TEXT("SA_UI\\VPN-10.0.0.1\\Sub"), true},
    };
    for (const auto& [name, carried] : keys) reg_setDWORDW(Created(name).get(), TEXT("n"), 1);
    const std::string section = Export();
    for (const auto& [name, carried] : keys) {
        const bool found = section.find("\"" + WideToUtf8(name) + "\"") != std::string::npos;
        EXPECT_EQ(found, carried) << WideToUtf8(name);
    }
}

TEST_F(UserConfiguration, KeepsToTheBuffersOfTheFormat) {
    const UniqueRegKey key = Created(TEXT("Limits"));
    // 28 bytes of the 2048 are the cipher's, which leaves 1010 characters.
    for (const std::size_t length : {0u, 1u, 1009u, 1010u, 1011u, 1024u, 1025u}) {
        ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("Secret"), WString(length, 'x').c_str()));
        const std::string section = Export();
        EXPECT_EQ(section.find("data=\"EncX ") != std::string::npos, length <= 1010) << length;
        EXPECT_NE(section.find("enc=\"1\""), std::string::npos);
    }
    // The last export could not carry the value: the import leaves what the user has.
    ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("Secret"), TEXT("mine")));
    ImportFile();
    EXPECT_EQ(Stored(TEXT("Limits"), TEXT("Secret")), "mine");

    ASSERT_TRUE(reg_setDWORDW(key.get(), WString(259, 'n').c_str(), 1));
    ASSERT_TRUE(reg_setDWORDW(key.get(), WString(260, 'm').c_str(), 1));
    const std::string section = Export();
    EXPECT_NE(section.find(std::string(259, 'n')), std::string::npos);
    EXPECT_EQ(section.find(std::string(259, 'm')), std::string::npos) << "does not fit the buffer";
}

TEST_F(UserConfiguration, ReadsDamagedSectionsAsFarAsTheyGo) {
    Import(R"(text<value key="A" name="n" type="4" data="12"/><!-- c -->
              <value name="n" type="4" data="1"/><value key="Y" type="4" data="1"/>
              <value key="X" name="n" data="1"/><value key="Z" name="n" type="4"/>
              <value key="B" name="n" type="4" data="none"/><value key="C" name="n" type="q" data="1"/>
              <value key="D" name="n" type="1" data="EncX 00"/>
              <value key="E" name="n" type="1" data="EncX 00" enc="0"/>
              <value key="F" name="n" type="7" data="610062006300640065006600670068006900300031003200FFF"/>
              <value key="G" name="n" type="1" data="Enc" enc="1"/>
              <value key="H\\I\" name="n" type="4" data="-2"/>
              <value key="J" name="" type="4" data="1"/><value key="K" name="n" type="4" data="1"/>)");
    const std::pair<const WCHAR*, const char*> values[] = {
        {TEXT("A"), "12"},       {TEXT("B"), "0"},       {TEXT("H\\I"), "4294967294"},
        {TEXT("C"), "no value"},  // an unknown type: the key alone
        {TEXT("D"), "EncX 00"},  {TEXT("E"), "EncX 00"}, {TEXT("F"), "abcdefghi012;"},
        {TEXT("G"), "no key"},   {TEXT("J"), "no key"},  {TEXT("K"), "no key"},
        {TEXT("X"), "no key"},   {TEXT("Y"), "no key"},  {TEXT("Z"), "no key"},
    };
    for (const auto& [key, value] : values) EXPECT_EQ(Stored(key), value) << WideToUtf8(key);
    Import(R"(<value key="L" name="n" type="4" data="1"/>
              <value key="L" name="s" type="1" data="EncX zz" enc="1"/>)");
    EXPECT_EQ(Stored(TEXT("L")), "no key") << "one text that does not decrypt stops the section";

    ASSERT_TRUE(CRegistry(false, false).DeleteKeyTree(kProductKey, false));
    Import(R"(<value key="A" name="n" type="4" data="1"/>)");
    EXPECT_FALSE(CRegistry(false, true).OpenKey(kProductKey)) << "the product key is never made";
}

TEST_F(UserConfiguration, NoSecretOutlivesItsUse) {
    const HiddenPattern password = PartOf(MadeSecret(1));
    const HiddenPattern value = PartOf(MadeSecret(2));
    const UniqueRegKey key = Created(TEXT("SA_UI"));
    ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("Secret"), MadeSecret(2).c_str()));
    const std::string section = Export(MadeSecret(1).c_str());
    ASSERT_TRUE(reg_removevalueW(key.get(), TEXT("Secret")));
    ImportFile(MadeSecret(1).c_str());
    WCHAR* text = nullptr;
    ASSERT_TRUE(reg_getstringW(key.get(), TEXT("Secret"), &text, nullptr));
    EXPECT_TRUE(value.StandsInMemory()) << "what is there is found";
    reg_free(text);
    EXPECT_FALSE(password.StandsInMemory());
    SKIP_WITHOUT(kDataProtection);
    EXPECT_FALSE(value.StandsInMemory());
}

// --- VPN connections only -----------------------------------------------------------------------

TEST_F(UserConfiguration, VpnOnlyKeepsTheConnections) {
    const auto reduce = [&](const std::string& content) {
        WriteWholeFile(file_, content);
        return FilterVpnOnlyConfig(Wide(file_));
    };
    EXPECT_EQ(reduce("<sentrel_configuration policy=\"p\"><date>d</date><av/><!-- c --><!--vpn-->"
                     "<VPN/><vpn><!-- c --><options/><sslvpn><connections><!-- kept --><a/>"
                     "</connections><options/></sslvpn><sslvpn><options/></sslvpn>"
                     "<ipsecvpn><connections/><phase1/></ipsecvpn></vpn><vpn><options/></vpn>"
                     "<user_configuration><value/></user_configuration></sentrel_configuration>"),
              kVpnOnlyDone);
    TiXmlDocument expected;
    expected.Parse(
        "<sentrel_configuration policy=\"p\"><date>d</date><!--vpn--><vpn><sslvpn><connections>"
        "<!-- kept --><a/></connections></sslvpn><sslvpn><options/></sslvpn>"
        "<ipsecvpn><connections/></ipsecvpn></vpn><vpn><options/></vpn>"
        "<user_configuration><value/></user_configuration></sentrel_configuration>");
    const std::string reduced = ReadWholeFile(file_);
    ASSERT_TRUE(SaveXmlFile(Wide(file_), expected));
    EXPECT_EQ(reduced, ReadWholeFile(file_));

    EXPECT_EQ(reduce("<other><av/></other>"), kVpnOnlyDone);
    EXPECT_EQ(ReadWholeFile(file_), "<other><av/></other>");
    EXPECT_EQ(reduce("no markup"), kVpnOnlyFailed);
}

}  // namespace
