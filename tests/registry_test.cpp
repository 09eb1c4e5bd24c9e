// The registry class, the user's section of a configuration file, and the reduction to VPN
// connections.
#include "registry/registry.h"

#include <utilsdll.h>

#include <optional>

#include "common/handles.h"
#include "common/xml_file.h"
#include "registry/locations.h"
#include "registry/user_configuration.h"
#include "registry/vpn_only.h"
#include "tests/support/machine.h"
#include "tests/support/memory_scan.h"
#include "tests/support/wide.h"

namespace {

const WString kTestKey = TEXT("software\\Verdane\\Sentrel\\SA_TEST");

class RegistryClass : public MachineTest {
  protected:
    RegistryClass() { EXPECT_TRUE(registry_.CreateKey(kTestKey)); }
    CRegistry registry_{true, false};
};

TEST_F(RegistryClass, ReadOnlyRefusesEveryWriteAndRecordsNothing) {
    ASSERT_TRUE(registry_.SetDWORD(TEXT("n"), 1));
    CRegistry reader(true, true);
    ASSERT_TRUE(reader.OpenKey(kTestKey));
    DWORD number = 0;
    EXPECT_FALSE(reader.GetDWORD(TEXT("missing"), number));
    const BYTE byte = 0;
    EXPECT_FALSE(reader.SetDWORD(TEXT("n"), 2));
    EXPECT_FALSE(reader.SetString(TEXT("s"), TEXT("x"), false));
    EXPECT_FALSE(reader.SetBinary(TEXT("b"), &byte, 1));
    EXPECT_FALSE(reader.SetMultiString(TEXT("m"), &byte, 1));
    EXPECT_FALSE(reader.DeleteValue(TEXT("n")));
    EXPECT_FALSE(reader.CreateKey(TEXT("k")));
    EXPECT_FALSE(reader.DeleteKeyTree(kTestKey, true));
    EXPECT_FALSE(reader.CopyKey(TEXT("a"), TEXT("b")));
    EXPECT_EQ(reader.LastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_TRUE(reader.GetDWORD(TEXT("n"), number));
    EXPECT_EQ(number, 1u);
}

TEST_F(RegistryClass, ReadsValuesByItsOwnRules) {
    DWORD number = 77;
    ASSERT_TRUE(registry_.SetString(TEXT("s"), TEXT("A"), false));
    EXPECT_EQ(registry_.LastSize(), 2u) << "characters with the terminator";
    EXPECT_TRUE(registry_.GetDWORD(TEXT("s"), number)) << "four bytes, whatever the type";
    EXPECT_EQ(registry_.LastType(), REG_SZ);
    EXPECT_EQ(number, DWORD{'A'});
    ASSERT_TRUE(registry_.SetString(TEXT("s"), TEXT("AB"), true));
    EXPECT_FALSE(registry_.GetDWORD(TEXT("s"), number));
    EXPECT_EQ(registry_.LastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(number, DWORD{'A'});
    WString text;
    EXPECT_TRUE(registry_.GetString(TEXT("s"), text)) << "a protected text comes back plain";
    EXPECT_EQ(text, TEXT("AB"));

    std::vector<WString> texts;
    const WCHAR list[] = {'a', 0, 'b', 'c', 0, 0, 'x', 0, 0};
    const auto* listBytes = reinterpret_cast<const BYTE*>(list);
    ASSERT_TRUE(registry_.SetMultiString(TEXT("m"), listBytes, sizeof list));
    EXPECT_TRUE(registry_.GetMultiString(TEXT("m"), texts));
    EXPECT_EQ(texts, (std::vector<WString>{TEXT("a"), TEXT("bc")}));
    ASSERT_TRUE(registry_.SetMultiString(TEXT("m"), listBytes, 1));
    EXPECT_FALSE(registry_.GetMultiString(TEXT("m"), texts)) << "not one character";
    ASSERT_TRUE(registry_.SetMultiString(TEXT("m"), listBytes, 2));
    EXPECT_TRUE(registry_.GetMultiString(TEXT("m"), texts)) << "a list without terminators";
    EXPECT_EQ(texts.back(), TEXT("a"));
}

TEST_F(RegistryClass, CopiesMovesAndEnumerates) {
    std::vector<WString> names;
    CRegistry source(true, false);
    ASSERT_TRUE(source.CreateKey(kTestKey + TEXT("\\From\\Deep")));
    ASSERT_TRUE(source.SetDWORD(TEXT("n"), 9));

    EXPECT_TRUE(registry_.CopyKey(TEXT("From"), TEXT("Copy")));
    EXPECT_TRUE(registry_.MoveKey(TEXT("From"), TEXT("To")));
    EXPECT_FALSE(registry_.MoveKey(TEXT("From"), TEXT("Nowhere"))) << "nothing left to move";
    EXPECT_EQ(registry_.LastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_TRUE(registry_.EnumSubKeys(names));
    EXPECT_EQ(names, (std::vector<WString>{TEXT("Copy"), TEXT("To")}));

    CRegistry moved(true, true);
    DWORD number = 0;
    EXPECT_TRUE(moved.OpenKey(kTestKey + TEXT("\\To\\Deep")) && moved.GetDWORD(TEXT("n"), number));
    EXPECT_EQ(number, 9u);
    EXPECT_TRUE(registry_.DeleteSubKeyTree(TEXT("To")));
    EXPECT_TRUE(registry_.DeleteKeyTree(kTestKey, true));
    EXPECT_FALSE(CRegistry(true, true).OpenKey(kTestKey));
}

// --- The user's section -------------------------------------------------------------------------

class UserConfiguration : public MachineTest {
  protected:
    UserConfiguration() { EXPECT_TRUE(user_.CreateKey(kProductKey)); }

    // The section of the current user, as text.
    std::string Export(const WCHAR* password = TEXT("pass phrase")) {
        TiXmlElement root("sentrel_configuration");
        root.InsertEndChild(TiXmlElement(kUserConfigurationElement));
        root.InsertEndChild(TiXmlElement("av"));
        ExportUserConfiguration(&root, SecureText(password), 0);
        TiXmlDocument document;
        document.InsertEndChild(root);
        EXPECT_TRUE(SaveXmlFile(file_.string(), document));
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

    // A value as text, whatever its type; or what there is not.
    static std::string Stored(const WString& below, const WCHAR* name = TEXT("n")) {
        CRegistry key(false, true);
        if (!key.OpenKey(WString(kProductKey) + TEXT("\\") + below)) return "no key";
        if (!key.ValueExists(name)) return "no value";
        WString text;
        DWORD number = 0;
        std::vector<WString> texts;
        if (key.GetString(name, text)) return WideToUtf8(text);
        if (key.GetMultiString(name, texts)) return std::to_string(texts.size()) + " texts";
        return key.GetDWORD(name, number) ? std::to_string(number) : "no value";
    }
    static UniqueRegKey Opened(const WString& below) {
        const WString path = WString(kProductKey) + TEXT("\\") + below;
        return UniqueRegKey(reg_openkeyW(HKEY_CURRENT_USER, path.c_str()));
    }

    CRegistry user_{false, false};
    std::filesystem::path file_ = ScratchFolder() / "config.xml";
};

TEST_F(UserConfiguration, ComesBackAsItWas) {
    EXPECT_NE(Export().find("<user_configuration />"), std::string::npos) << "nothing to carry";

    ASSERT_TRUE(user_.CreateKey(TEXT("SA_UI\\Example")));
    const WString secret(1000, WCHAR{0x20AC});
    const UniqueRegKey key = Opened(TEXT("SA_UI\\Example"));
    const WCHAR list[] = {'a', 0, 'b', 0, 0};
    const BYTE blob = 1;
    ASSERT_TRUE(user_.SetString(TEXT("PlainText"), TEXT("äbc &#x41; <&>"), false));
    ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("Secret"), secret.c_str()));
    ASSERT_TRUE(user_.SetDWORD(TEXT("Flags"), 4294967295u));
    ASSERT_TRUE(reg_setmultistringW(key.get(), TEXT("List"), list));
    ASSERT_TRUE(user_.SetBinary(TEXT("Blob"), &blob, 1));

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

    ASSERT_TRUE(user_.DeleteKeyTree(WString(kProductKey) + TEXT("\\SA_UI"), false));
    ImportFile(TEXT("wrong phrase"));
    EXPECT_EQ(Stored(TEXT("SA_UI")), "no key") << "a wrong password writes nothing at all";
    ImportFile();
    const WString example = TEXT("SA_UI\\Example");
    EXPECT_EQ(Stored(example, TEXT("PlainText")), "äbc &#x41; <&>");
    EXPECT_EQ(Stored(example, TEXT("Secret")), WideToUtf8(secret));
    EXPECT_EQ(Stored(example, TEXT("Flags")), "4294967295");
    EXPECT_EQ(Stored(example, TEXT("List")), "2 texts");
    EXPECT_EQ(Stored(example, TEXT("Blob")), "no value");
    const UniqueRegKey restored = Opened(example);
    EXPECT_TRUE(reg_is_encrypted_valueW(restored.get(), TEXT("Secret")));
}

TEST_F(UserConfiguration, LeavesGatewayKeysOut) {
    const std::pair<const WCHAR*, bool> keys[] = {
        {TEXT("SA_UI\\VPN-10.0.0.1"), false},
        {TEXT("SA_UI\\vpn-10.0.0.22"), false},
        {TEXT("SA_UI\\VPN-10.0.0"), true},
        {TEXT("SA_UI\\VPN-10.0.0.1\\Sub"), true},
    };
    for (const auto& [name, carried] : keys) {
        CRegistry key(false, false);
        ASSERT_TRUE(key.CreateKey(WString(kProductKey) + TEXT("\\") + name));
        ASSERT_TRUE(key.SetDWORD(TEXT("n"), 1));
    }
    const std::string section = Export();
    for (const auto& [name, carried] : keys) {
        const bool found = section.find("\"" + WideToUtf8(name) + "\"") != std::string::npos;
        EXPECT_EQ(found, carried) << WideToUtf8(name);
    }
}

TEST_F(UserConfiguration, KeepsToTheBuffersOfTheFormat) {
    ASSERT_TRUE(user_.CreateKey(TEXT("Limits")));
    const UniqueRegKey key = Opened(TEXT("Limits"));
    // 28 bytes of the 2048 are the cipher's.
    const std::pair<std::size_t, bool> lengths[] = {{0, true},    {1, true},     {1009, true},
                                                    {1010, true}, {1011, false}, {1024, false},
                                                    {1025, false}};
    for (const auto& [length, fits] : lengths) {
        ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("Secret"), WString(length, 'x').c_str()));
        const std::string section = Export();
        EXPECT_EQ(section.find("data=\"EncX ") != std::string::npos, fits) << length;
        EXPECT_NE(section.find("enc=\"1\""), std::string::npos);
    }
    // The last export could not carry the value: the import leaves what the user has.
    ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("Secret"), TEXT("mine")));
    ImportFile();
    EXPECT_EQ(Stored(TEXT("Limits"), TEXT("Secret")), "mine");

    ASSERT_TRUE(user_.SetDWORD(WString(259, 'n'), 1));
    ASSERT_TRUE(user_.SetDWORD(WString(260, 'm'), 1));
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
              <value key="F" name="n" type="7" data="6100000"/>
              <value key="G" name="n" type="1" data="Enc" enc="1"/>
              <value key="H\\I\" name="n" type="4" data="-2"/>
              <value key="J" name="" type="4" data="1"/><value key="K" name="n" type="4" data="1"/>)");
    const std::pair<const WCHAR*, const char*> values[] = {
        {TEXT("A"), "12"},       {TEXT("B"), "0"},       {TEXT("H\\I"), "4294967294"},
        {TEXT("C"), "no value"},  // an unknown type: the key alone
        {TEXT("D"), "EncX 00"},  {TEXT("E"), "EncX 00"}, {TEXT("F"), "1 texts"},
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
    // Made at run time, so that the program's own constants do not hold them.
    const auto make = [](WCHAR first) {
        WCHAR text[40];
        for (int i = 0; i < 39; ++i) text[i] = static_cast<WCHAR>(first + (i * 7) % 23);
        text[39] = 0;
        SecureText made(text);
        WipeMemory(text, sizeof text);
        return made;
    };
    std::optional<SecureText> password = make('A');
    std::optional<SecureText> value = make('a');
    const HiddenPattern passwordPattern(password->c_str(), 2 * password->size());
    const HiddenPattern valuePattern(value->c_str(), 2 * value->size());
    ASSERT_TRUE(passwordPattern.StandsInMemory() && valuePattern.StandsInMemory());

    ASSERT_TRUE(user_.CreateKey(TEXT("SA_UI")));
    const UniqueRegKey key = Opened(TEXT("SA_UI"));
    ASSERT_TRUE(reg_setstring_enc_cuW(key.get(), TEXT("Secret"), value->c_str()));
    Export(password->c_str());
    ImportFile(password->c_str());
    password.reset();
    value.reset();
    EXPECT_FALSE(passwordPattern.StandsInMemory());
    EXPECT_FALSE(valuePattern.StandsInMemory());
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
        "<!-- kept "
        "--><a/></connections></sslvpn><sslvpn><options/></sslvpn><ipsecvpn><connections/>"
        "</ipsecvpn></vpn><vpn><options/></vpn><user_configuration><value/></user_configuration>"
        "</sentrel_configuration>");
    const std::string reduced = ReadWholeFile(file_);
    ASSERT_TRUE(SaveXmlFile(file_.string(), expected));
    EXPECT_EQ(reduced, ReadWholeFile(file_));

    EXPECT_EQ(reduce("<other><av/></other>"), kVpnOnlyDone);
    EXPECT_EQ(ReadWholeFile(file_), "<other><av/></other>");
    EXPECT_EQ(reduce("no markup"), kVpnOnlyFailed);
}

}  // namespace
