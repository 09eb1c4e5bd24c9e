// The configuration plug-ins, loaded and called as the dispatcher does.
#include <config_plugin.h>
#include <gtest/gtest.h>
#include <utilsdll.h>

#include <set>
#include <stdexcept>
#include <utility>

#include "common/handles.h"
#include "common/hex.h"
#include "common/path.h"
#include "common/xml_file.h"
#include "tests/support/cipher.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"
#include "tests/support/wide.h"

namespace {

// Library and element of each feature; its key is "SA_" and the element's name.
constexpr std::pair<const char*, const char*> kPlugins[] = {
    {"cfmsystem", "system"}, {"cfmvpn", "vpn"},       {"cfmav", "av"},
    {"cfmvssoma", "ssoma"},  {"cfmwanopt", "wanopt"}, {"cfmwf", "webfilter"},
    {"cfmfw", "firewall"},   {"cfmvuln", "vuln"},     {"cfmsandbox", "sandbox"},
    {"cfmae", "ae"},         {"cfmusbmon", "usbmon"}, {"cfmcloudscan", "cloudscan"},
    {"cfmac", "ac"},         {"cfmrs", "rs"},         {"cfmztna", "ztna"},
    {"cfmpam", "pam"},       {"cfmesnac", "esnac"},
};

constexpr const WCHAR* kPassword = TEXT("pass phrase");

UniqueRegKey FeatureKey(const std::string& path) {
    const std::string full = "software\\Verdane\\Sentrel\\" + path;
    return UniqueRegKey(reg_createkeyW(HKEY_LOCAL_MACHINE, Utf8ToWide(full).c_str()));
}

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

class PluginsTest : public MachineTest {
  protected:
    PluginsTest() {
        WriteWholeFile(file_,
                       "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<sentrel_configuration>\n"
                       "    <date>2024/05/31</date>\n</sentrel_configuration>\n");
    }

    // Loads the plug-in for one call.
    template <typename Function, typename... Arguments>
    int Call(const std::string& plugin, const char* function, Arguments... arguments) const {
        const UniqueLibrary library(
            LoadLibraryW(JoinPath(cfg_get_install_dir(), Utf8ToWide(plugin)).c_str()));
        auto* const address = reinterpret_cast<void*>(GetProcAddress(library.get(), function));
        EXPECT_NE(address, nullptr) << plugin << ": " << GetLastError();
        return reinterpret_cast<Function>(address)(Wide(file_).c_str(), arguments...);
    }
    int Export(const std::string& plugin, const WCHAR* password = kPassword) const {
        return Call<ExportToXmlFunction>(plugin, "ExportToXml", TEXT("1"), password);
    }
    int Advanced(const std::string& plugin, const WCHAR* operation) const {
        return Call<AdvancedOpFunction>(plugin, "AdvancedOp", operation, TEXT("1"), kPassword);
    }

    // The root's only child of that name, after the file is read again.
    const TiXmlElement& Element(const std::string& name) {
        EXPECT_TRUE(LoadXmlFile(Wide(file_), document_));
        const auto* const element = document_.RootElement()->FirstChildElement(name);
        if (element == nullptr) throw std::runtime_error("no " + name);
        EXPECT_EQ(element->NextSiblingElement(name), nullptr) << name;
        return *element;
    }

    const std::filesystem::path file_ = ScratchFolder() / "settings.conf";
    TiXmlDocument document_;
};

TEST_F(PluginsTest, EachFeatureWritesItsOwnKeyUnderItsOwnElement) {
    DWORD number = 0;
    for (const auto& [library, element] : kPlugins) {
        const UniqueRegKey key = FeatureKey(std::string("SA_") + element);
        reg_setDWORDW(key.get(), TEXT("Number"), ++number);
        EXPECT_EQ(Export(library), 0) << library;
    }
    ASSERT_EQ(Advanced("cfmvpn", TEXT("export-install")), 0);
    number = 0;
    for (const auto& [library, name] : kPlugins) {
        const TiXmlElement& element = Element(name);
        EXPECT_EQ(Short(element), std::string(name) + " { value name=Number type=4 data=" +
                                      std::to_string(++number) + " }");
        EXPECT_NE(element.FirstChild()->ToComment(), nullptr);
    }
    EXPECT_EQ(Short(*document_.RootElement()->LastChild()->ToElement()).substr(0, 3), "vpn");
    EXPECT_STREQ(Element("date").GetText(), "2024/05/31");
}

TEST_F(PluginsTest, EveryTypeOfValueIsCarried) {
    const UniqueRegKey key = FeatureKey("SA_AV");
    reg_setstringW(key.get(), TEXT(""), TEXT("default"));
    reg_setstringW(key.get(), TEXT("Text"), TEXT("ä<&\"'>\t\n\r &#x41; 🔒"));
    SetRaw(key.get(), TEXT(""), TEXT("Path"), REG_EXPAND_SZ, {'%', 0, 'T', 0, '%', 0, 0, 0});
    reg_setDWORDW(key.get(), TEXT("Dword"), 0xFFFFFFFF);
    SetRaw(key.get(), TEXT(""), TEXT("Qword"), REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0x80});
    reg_setmultistringW(key.get(), TEXT("List"), TEXT("a\0b\0"));
    SetRaw(key.get(), TEXT(""), TEXT("Binary"), REG_BINARY, {0, 1, 0xFF});
    ASSERT_EQ(Export("cfmav"), 0);
    EXPECT_EQ(Short(Element("av")),
              "av { value name= type=1 data=default, "
              "value name=Binary type=3 data=0001FF data-encoding=hex, "
              "value name=Dword type=4 data=4294967295, "
              "value name=List type=7 data=61000000620000000000 data-encoding=hex, "
              "value name=Path type=2 data=%T%, "
              "value name=Qword type=11 data=9223372036854775809, "
              "value name=Text type=1 data=ä<&\"'>\t\n\r &#x41; 🔒 }");

    // The file has them in the registry's order.
    SKIP_WITHOUT(kOrderOfValues);
    const TiXmlElement* value = Element("av").FirstChildElement();
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
    SetRaw(key.get(), TEXT(""), TEXT("Half"), REG_SZ, {0x3D, 0xD8, 0, 0});
    SetRaw(key.get(), TEXT(""), TEXT("Two"), REG_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0});
    SetRaw(key.get(), TEXT(""), TEXT("Open"), REG_SZ, {'a', 0});
    SetRaw(key.get(), TEXT(""), TEXT("Short"), REG_DWORD, {1});
    FeatureKey("SA_AV\\K\x02");
    ASSERT_EQ(Export("cfmav"), 0);
    EXPECT_EQ(Short(Element("av")),
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
    ASSERT_EQ(Export("cfmvpn"), 0);
    EXPECT_EQ(Short(Element("vpn")),
              "vpn { ipsecvpn { connections { key name=options } }, key name=options, "
              "sslvpn { connections { key name=Office { value name=n type=4 data=1 } }, "
              "key name=more, options { value name=n type=4 data=2 } } }");
}

TEST_F(PluginsTest, ProtectedStringsLeaveUnderThePassword) {
    const WString plain = TEXT("geheim ☂");
    const UniqueRegKey key = FeatureKey("SA_AV");
    reg_setstring_encW(key.get(), TEXT("Secret"), plain.c_str());
    ASSERT_EQ(Export("cfmav"), 0);
    const TiXmlElement* const value = Element("av").FirstChildElement();
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value->Attribute("enc"), "1");
    const std::string data = value->Attribute("data");
    ASSERT_EQ(data.substr(0, 5), "EncX ");
    std::vector<BYTE> cipher;
    HexToBytes(data.substr(5), cipher);
    EXPECT_EQ(Decrypted({cipher.begin(), cipher.end()}, kPassword),
              std::string(reinterpret_cast<const char*>(plain.data()), 2 * plain.size()));

    // Without a password, or unreadable, it is left out and the export tells so.
    reg_setstringW(key.get(), TEXT("Plain"), TEXT("p"));
    EXPECT_NE(Export("cfmav", TEXT("")), 0);
    EXPECT_EQ(Short(Element("av")), "av { value name=Plain type=1 data=p }");
}

TEST_F(PluginsTest, AnImportMakesTheKeyWhatTheElementSays) {
    const auto import = [&](const std::string& library, const std::string& element) {
        WriteWholeFile(file_, "<sentrel_configuration>" + element + "</sentrel_configuration>");
        return Call<ImportFromXmlFunction>(library, "ImportFromXml", TEXT("1"), kPassword);
    };
    const auto exported = [&](const std::string& library, const std::string& element) {
        EXPECT_EQ(Export(library), 0);
        return Short(Element(element));
    };
    FeatureKey("SA_AV\\old\\deep");
    reg_setDWORDW(FeatureKey("SA_AV").get(), TEXT("Old"), 1);
    const std::string before = exported("cfmav", "av");
    // What cannot be read whole changes nothing.
    for (const char* bad :
         {"<value name='a' type='4' data='x' />", "<value name='a' type='4' />",
          "<value name='a' type='1' data='EncX 00' enc='1' />", "<key name='a\\b' />"}) {
        EXPECT_NE(import("cfmav",
                         "<av><value name='New' type='4' data='2' />" + std::string(bad) + "</av>"),
                  0);
        EXPECT_EQ(exported("cfmav", "av"), before) << bad;
    }
    EXPECT_EQ(import("cfmav", "<vpn />"), 0) << "no element, no change";
    EXPECT_EQ(exported("cfmav", "av"), before);
    EXPECT_EQ(import("cfmav", "<av><value name='New' type='4' data='2' /><key name='k' /></av>"),
              0);
    const std::string after = "av { key name=k, value name=New type=4 data=2 }";
    EXPECT_EQ(exported("cfmav", "av"), after);
    // A locked client's settings stay, whatever their types.
    ASSERT_TRUE(cfg_sentrelmanager_set_pwd(TEXT("x")) && sec_set_sa_registry_lock(true));
    EXPECT_NE(import("cfmav", "<av><value name='New' type='4' data='3' /></av>"), 0);
    EXPECT_EQ(exported("cfmav", "av"), after);
    ASSERT_TRUE(sec_set_sa_registry_lock(false));
    // A key with sections is merged.
    FeatureKey("SA_VPN\\sslvpn\\options");
    EXPECT_EQ(
        import("cfmvpn", "<vpn><ipsecvpn><options><key name='k' /></options></ipsecvpn></vpn>"), 0);
    EXPECT_EQ(exported("cfmvpn", "vpn"),
              "vpn { ipsecvpn { options { key name=k } }, sslvpn { options } }");
}

TEST_F(PluginsTest, RefusesWhatItCannotDo) {
    const std::string before = ReadWholeFile(file_);
    EXPECT_NE(Advanced("cfmav", TEXT("importvpn")), 0);
    EXPECT_EQ(ReadWholeFile(file_), before);
    for (const char* content : {"<sentrel_configuration>", "<other/>", "", "<!-- no root -->"}) {
        WriteWholeFile(file_, content);
        EXPECT_NE(Export("cfmav"), 0);
        EXPECT_EQ(ReadWholeFile(file_), content);
    }
    std::filesystem::remove(file_);
    EXPECT_NE(Export("cfmav"), 0);
}

}  // namespace
