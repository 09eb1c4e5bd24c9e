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

TEST_F(RegistryClass, MovesToAKeyAndStaysWhereItIsOnFailure) {
    CRegistry other(true, true);
    EXPECT_FALSE(other.OpenKey(TEXT("software\\Verdane\\Missing")));
    EXPECT_EQ(other.LastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_TRUE(other.OpenKey(kTestKey + TEXT("\\")));
    EXPECT_EQ(other.LastError(), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(other.OpenKey(kTestKey)) << "the opened key is the base of the next one";

    EXPECT_TRUE(registry_.CreateKey(TEXT("Sub")));
    EXPECT_TRUE(registry_.SetDWORD(TEXT("here"), 1));
    EXPECT_TRUE(other.OpenKey(TEXT("sub")));
    EXPECT_TRUE(other.ValueExists(TEXT("HERE")));
    EXPECT_EQ(other.LastType(), DWORD{0});
}

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
    EXPECT_FALSE(registry_.GetString(TEXT("missing"), text));

    const BYTE raw[] = {1, 2, 3};
    std::unique_ptr<BYTE[]> bytes;
    DWORD size = 0;
    ASSERT_TRUE(registry_.SetBinary(TEXT("b"), raw, sizeof raw));
    ASSERT_TRUE(registry_.GetBinary(TEXT("b"), bytes, size));
    EXPECT_TRUE(size == 3 && std::equal(raw, raw + 3, bytes.get()));
    EXPECT_FALSE(registry_.GetBinary(TEXT("missing"), bytes, size));
    EXPECT_EQ(bytes, nullptr);

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
    EXPECT_FALSE(registry_.GetMultiString(TEXT("b"), texts));
}

TEST_F(RegistryClass, CopiesMovesAndEnumerates) {
    std::vector<WString> names;
    EXPECT_FALSE(registry_.EnumSubKeys(names));
    EXPECT_FALSE(registry_.EnumValueNames(names));
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

    static CRegistry* Key(CRegistry& key, const WString& below) {
        EXPECT_TRUE(key.OpenKey(WString(kProductKey) + TEXT("\\") + below)) << "no such key";
        return &key;
    }
    bool HasKey(const WString& below) {
        return CRegistry(false, true).OpenKey(WString(kProductKey) + TEXT("\\") + below);
    }

    CRegistry user_{false, false};
    std::filesystem::path file_ = ScratchFolder() / "config.xml";
};

TEST_F(UserConfiguration, ComesBackAsItWas) {
    EXPECT_NE(Export().find("<user_configuration />"), std::string::npos) << "nothing to carry";

    ASSERT_TRUE(user_.CreateKey(TEXT("SA_UI\\Example")));
    const WString secret(1000, WCHAR{0x20AC});
    const UniqueRegKey key(
        reg_openkeyW(HKEY_CURRENT_USER, (WString(kProductKey) + TEXT("\\SA_UI\\Example")).c_str()));
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
    EXPECT_FALSE(HasKey(TEXT("SA_UI"))) << "a wrong password writes nothing at all";
    ImportFile();
    CRegistry back(false, true);
    ASSERT_TRUE(back.OpenKey(WString(kProductKey) + TEXT("\\SA_UI\\Example")));
    WString text;
    DWORD flags = 0;
    std::vector<WString> texts;
    EXPECT_TRUE(back.GetString(TEXT("PlainText"), text) && text == TEXT("äbc &#x41; <&>"));
    EXPECT_TRUE(back.GetString(TEXT("Secret"), text) && text == secret);
    EXPECT_TRUE(back.GetDWORD(TEXT("Flags"), flags) && flags == 4294967295u);
    EXPECT_TRUE(back.GetMultiString(TEXT("List"), texts) && texts.size() == 2);
    EXPECT_FALSE(back.ValueExists(TEXT("Blob")));
    const UniqueRegKey restored(
        reg_openkeyW(HKEY_CURRENT_USER, (WString(kProductKey) + TEXT("\\SA_UI\\Example")).c_str()));
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
    const UniqueRegKey key(
        reg_openkeyW(HKEY_CURRENT_USER, (WString(kProductKey) + TEXT("\\Limits")).c_str()));
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
    WString text;
    EXPECT_TRUE(user_.GetString(TEXT("Secret"), text) && text == TEXT("mine"));

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
    const std::pair<const WCHAR*, DWORD> numbers[] = {
        {TEXT("A"), 12}, {TEXT("B"), 0}, {TEXT("H\\I"), 4294967294u}};
    for (const auto& [name, expected] : numbers) {
        CRegistry key(false, true);
        DWORD number = 99;
        Key(key, name)->GetDWORD(TEXT("n"), number);
        EXPECT_EQ(number, expected) << WideToUtf8(name);
    }
    CRegistry unknownType(false, true);
    EXPECT_FALSE(Key(unknownType, TEXT("C"))->ValueExists(TEXT("n"))) << "the key alone";
    WString text;
    for (const WCHAR* name : {TEXT("D"), TEXT("E")}) {
        CRegistry key(false, true);
        EXPECT_TRUE(Key(key, name)->GetString(TEXT("n"), text) && text == TEXT("EncX 00"));
    }
    CRegistry list(false, true);
    std::vector<WString> texts;
    EXPECT_TRUE(Key(list, TEXT("F"))->GetMultiString(TEXT("n"), texts) && texts.size() == 1);
    for (const WCHAR* name : {TEXT("X"), TEXT("Y"), TEXT("Z"), TEXT("G"), TEXT("J"), TEXT("K")}) {
        EXPECT_FALSE(HasKey(name)) << WideToUtf8(name);
    }
    Import(R"(<value key="L" name="n" type="4" data="1"/>
              <value key="L" name="s" type="1" data="EncX zz" enc="1"/>)");
    EXPECT_FALSE(HasKey(TEXT("L"))) << "one text that does not decrypt stops the section";

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
    const UniqueRegKey key(
        reg_openkeyW(HKEY_CURRENT_USER, (WString(kProductKey) + TEXT("\\SA_UI")).c_str()));
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
