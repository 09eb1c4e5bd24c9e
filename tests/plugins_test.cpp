// The configuration plug-ins, loaded and called as the dispatcher does.
#include <config_plugin.h>
#include <gtest/gtest.h>
#include <utilsdll.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <utility>

#include "common/handles.h"
#include "common/hex.h"
#include "common/path.h"
#include "common/xml_file.h"
#include "tests/support/cipher.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"

namespace {

// Library and element of each feature; its key is "SA_" and the element's name in capitals.
constexpr std::pair<const char*, const char*> kPlugins[] = {
    {"cfmsystem", "system"}, {"cfmvpn", "vpn"},       {"cfmav", "av"},
    {"cfmvssoma", "ssoma"},  {"cfmwanopt", "wanopt"}, {"cfmwf", "webfilter"},
    {"cfmfw", "firewall"},   {"cfmvuln", "vuln"},     {"cfmsandbox", "sandbox"},
    {"cfmae", "ae"},         {"cfmusbmon", "usbmon"}, {"cfmcloudscan", "cloudscan"},
    {"cfmac", "ac"},         {"cfmrs", "rs"},         {"cfmztna", "ztna"},
    {"cfmpam", "pam"},       {"cfmesnac", "esnac"},
};

constexpr const WCHAR* kPassword = TEXT("pass phrase");

// One load of a plug-in.
class Plugin {
  public:
    explicit Plugin(const std::string& name)
        : library_(LoadLibraryW(JoinPath(cfg_get_install_dir(), Utf8ToWide(name)).c_str())) {
        EXPECT_TRUE(library_) << name << ": " << GetLastError();
    }
    int Export(const std::string& file, const WCHAR* password = kPassword) const {
        const auto call = Function<ExportToXmlFunction>("ExportToXml");
        return call(Utf8ToWide(file).c_str(), TEXT("1"), password);
    }
    int Advanced(const std::string& file, const WCHAR* operation) const {
        const auto call = Function<AdvancedOpFunction>("AdvancedOp");
        return call(Utf8ToWide(file).c_str(), operation, TEXT("1"), kPassword);
    }

  private:
    template <typename Type>
    Type Function(const char* name) const {
        return reinterpret_cast<Type>(
            reinterpret_cast<void*>(GetProcAddress(library_.get(), name)));
    }
    UniqueLibrary library_;
};

UniqueRegKey FeatureKey(const std::string& path) {
    const std::string full = "software\\Verdane\\Sentrel\\" + path;
    return UniqueRegKey(reg_createkeyW(HKEY_LOCAL_MACHINE, Utf8ToWide(full).c_str()));
}

void SetRaw(HKEY key, const WCHAR* name, DWORD type, const std::vector<BYTE>& data) {
    SetRaw(key, TEXT(""), name, type, data);
}

class PluginsTest : public MachineTest {
  protected:
    PluginsTest() : file_((ScratchFolder() / "settings.conf").string()) {
        WriteWholeFile(file_,
                       "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<sentrel_configuration>\n"
                       "    <date>2024/05/31</date>\n</sentrel_configuration>\n");
    }

    // The children of the root with that name.
    std::vector<const TiXmlElement*> Elements(const char* name) {
        EXPECT_TRUE(LoadXmlFile(file_, document_));
        std::vector<const TiXmlElement*> found;
        for (const auto* element = document_.RootElement()->FirstChildElement(name);
             element != nullptr; element = element->NextSiblingElement(name)) {
            found.push_back(element);
        }
        return found;
    }

    const std::string file_;
    TiXmlDocument document_;
};

// An element in short: name attribute=value ... { children }, which are sorted, since a registry
// has no order of its own; comments are left out.
std::string Short(const TiXmlElement& element) {
    std::string text = element.ValueStr();
    for (const auto* a = element.FirstAttribute(); a != nullptr; a = a->Next()) {
        text += std::string(" ") + a->Name() + "=" + a->Value();
    }
    std::set<std::string> children;
    for (const auto* child = element.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        EXPECT_TRUE(children.insert(Short(*child)).second) << "twice in " << text;
    }
    const char* separator = " { ";
    for (const std::string& child : children) text += std::exchange(separator, ", ") + child;
    return children.empty() ? text : text + " }";
}

TEST_F(PluginsTest, EachFeatureWritesItsOwnKeyUnderItsOwnElement) {
    DWORD number = 0;
    for (const auto& [library, element] : kPlugins) {
        std::string key = std::string("SA_") + element;
        std::ranges::transform(key, key.begin(), [](char c) { return std::toupper(c); });
        reg_setDWORDW(FeatureKey(key).get(), TEXT("Number"), ++number);
        EXPECT_EQ(Plugin(library).Export(file_), 0) << library;
    }
    ASSERT_EQ(Plugin("cfmvpn").Advanced(file_, TEXT("export-install")), 0);
    number = 0;
    for (const auto& [library, name] : kPlugins) {
        const auto elements = Elements(name);
        ASSERT_EQ(elements.size(), 1U) << name;
        EXPECT_EQ(Short(*elements[0]), std::string(name) + " { value name=Number type=4 data=" +
                                           std::to_string(++number) + " }");
        EXPECT_NE(elements[0]->FirstChild()->ToComment(), nullptr);
    }
    EXPECT_EQ(Short(*document_.RootElement()->LastChild()->ToElement()).substr(0, 3), "vpn");
    EXPECT_STREQ(Elements("date").at(0)->GetText(), "2024/05/31");
}

TEST_F(PluginsTest, EveryTypeOfValueIsCarried) {
    const UniqueRegKey key = FeatureKey("SA_AV");
    reg_setstringW(key.get(), TEXT(""), TEXT("default"));
    reg_setstringW(key.get(), TEXT("Text"), TEXT("ä<&\"'>\t\n\r &#x41; 🔒"));
    SetRaw(key.get(), TEXT("Path"), REG_EXPAND_SZ, {'%', 0, 'T', 0, '%', 0, 0, 0});
    reg_setDWORDW(key.get(), TEXT("Dword"), 0xFFFFFFFF);
    SetRaw(key.get(), TEXT("Qword"), REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0x80});
    reg_setmultistringW(key.get(), TEXT("List"), TEXT("a\0b\0"));
    SetRaw(key.get(), TEXT("Binary"), REG_BINARY, {0, 1, 0xFF});
    ASSERT_EQ(Plugin("cfmav").Export(file_), 0);
    EXPECT_EQ(Short(*Elements("av").at(0)),
              "av { value name= type=1 data=default, "
              "value name=Binary type=3 data=0001FF data-encoding=hex, "
              "value name=Dword type=4 data=4294967295, "
              "value name=List type=7 data=61000000620000000000 data-encoding=hex, "
              "value name=Path type=2 data=%T%, "
              "value name=Qword type=11 data=9223372036854775809, "
              "value name=Text type=1 data=ä<&\"'>\t\n\r &#x41; 🔒 }");

    // The file has them in the registry's order.
    SKIP_WITHOUT(kOrderOfValues);
    const TiXmlElement* value = Elements("av").at(0)->FirstChildElement();
    for (const char* name : {"", "Text", "Path", "Dword", "Qword", "List", "Binary"}) {
        ASSERT_NE(value, nullptr) << name;
        EXPECT_STREQ(value->Attribute("name"), name);
        value = value->NextSiblingElement();
    }
}

TEST_F(PluginsTest, WhatXmlCannotCarryGoesAsHexadecimal) {
    const UniqueRegKey key = FeatureKey("SA_AV");
    reg_setstringW(key.get(), TEXT("Bell"), TEXT("\a"));
    reg_setstringW(key.get(), TEXT("N\x01"), TEXT("x"));
    SetRaw(key.get(), TEXT("Half"), REG_SZ, {0x3D, 0xD8, 0, 0});
    SetRaw(key.get(), TEXT("Two"), REG_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0});
    SetRaw(key.get(), TEXT("Open"), REG_SZ, {'a', 0});
    SetRaw(key.get(), TEXT("Short"), REG_DWORD, {1});
    FeatureKey("SA_AV\\K\x02");
    ASSERT_EQ(Plugin("cfmav").Export(file_), 0);
    EXPECT_EQ(Short(*Elements("av").at(0)),
              "av { key name=4B000200 name-encoding=hex, "
              "value name=4E000100 name-encoding=hex type=1 data=x, "
              "value name=Bell type=1 data=07000000 data-encoding=hex, "
              "value name=Half type=1 data=3DD80000 data-encoding=hex, "
              "value name=Open type=1 data=6100 data-encoding=hex, "
              "value name=Short type=4 data=01 data-encoding=hex, "
              "value name=Two type=1 data=6100000062000000 data-encoding=hex }");
}

TEST_F(PluginsTest, VpnSectionsStandAsElements) {
    reg_setDWORDW(FeatureKey("SA_VPN\\SSLVPN\\connections\\Office").get(), TEXT("n"), 1);
    reg_setDWORDW(FeatureKey("SA_VPN\\sslvpn\\options").get(), TEXT("n"), 2);
    FeatureKey("SA_VPN\\ipsecvpn\\connections\\options");
    FeatureKey("SA_VPN\\options");
    FeatureKey("SA_VPN\\sslvpn\\more");
    ASSERT_EQ(Plugin("cfmvpn").Export(file_), 0);
    EXPECT_EQ(Short(*Elements("vpn").at(0)),
              "vpn { ipsecvpn { connections { key name=options } }, key name=options, "
              "sslvpn { connections { key name=Office { value name=n type=4 data=1 } }, "
              "key name=more, options { value name=n type=4 data=2 } } }");
}

TEST_F(PluginsTest, ProtectedStringsLeaveUnderThePassword) {
    const UniqueRegKey key = FeatureKey("SA_VPN\\sslvpn\\connections\\Office");
    reg_setstring_encW(key.get(), TEXT("Secret"), TEXT("geheim ☂"));
    ASSERT_EQ(Plugin("cfmvpn").Export(file_), 0);
    const TiXmlHandle handle(const_cast<TiXmlElement*>(Elements("vpn").at(0)));
    const TiXmlElement* value = handle.FirstChild("sslvpn")
                                    .FirstChild("connections")
                                    .FirstChild("key")
                                    .FirstChild("value")
                                    .ToElement();
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value->Attribute("enc"), "1");
    const std::string data = value->Attribute("data");
    ASSERT_EQ(data.substr(0, 5), "EncX ");
    std::vector<BYTE> cipher;
    HexToBytes(data.substr(5), cipher);
    const WString plain = TEXT("geheim ☂");
    EXPECT_EQ(Decrypted({cipher.begin(), cipher.end()}, kPassword),
              std::string(reinterpret_cast<const char*>(plain.data()), 2 * plain.size()));

    // Without a password, or unreadable, it is left out and the export tells so.
    reg_setstringW(key.get(), TEXT("Plain"), TEXT("p"));
    EXPECT_NE(Plugin("cfmvpn").Export(file_, TEXT("")), 0);
    const std::string content = ReadWholeFile(file_);
    EXPECT_EQ(content.find("Secret"), std::string::npos);
    EXPECT_NE(content.find("Plain"), std::string::npos);
}

TEST_F(PluginsTest, RefusesWhatItCannotDo) {
    const std::string before = ReadWholeFile(file_);
    EXPECT_NE(Plugin("cfmav").Advanced(file_, TEXT("importvpn")), 0);
    EXPECT_EQ(ReadWholeFile(file_), before);
    EXPECT_NE(Plugin("cfmav").Export(file_ + ".missing"), 0);
    for (const char* content : {"<sentrel_configuration>", "<other/>", "", "<!-- no root -->"}) {
        WriteWholeFile(file_, content);
        EXPECT_NE(Plugin("cfmav").Export(file_), 0);
        EXPECT_EQ(ReadWholeFile(file_), content);
    }
}

}  // namespace
