// The parts of the configuration pipeline: comments, header, verifier, module run, working copies.
#include <product_registry.h>
#include <utilsdll.h>

#include <set>

#include "app/services/run_settings.h"
#include "common/hex.h"
#include "common/xml_file.h"
#include "config/comments.h"
#include "config/header.h"
#include "config/modules.h"
#include "config/password_verifier.h"
#include "config/working_copy.h"
#include "protect/built_in_secrets.h"
#include "protect/data_protect.h"
#include "tests/support/cipher.h"
#include "tests/support/file_facts.h"
#include "tests/support/installed_product.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"
#include "tests/support/secrets.h"
#include "tests/support/wide.h"

namespace {

constexpr const WCHAR* kPassword = TEXT("pass phrase");
const std::string kDocument =
    "<?xml version=\"1.0\"?><sentrel_configuration>ü</sentrel_configuration>";

TEST(Comments, AreRemovedWhereverTheyStand) {
    TiXmlDocument document;
    document.Parse("<!--1--><r><!--2--><a><!--3-->text<b><!--4--></b></a><!--5--></r><!--6-->");
    const auto comments = SelectComments(document.RootElement());
    std::string order;
    for (const TiXmlNode* comment : comments) order += comment->ValueStr();
    EXPECT_EQ(order, "123456");
    StripComments(document.RootElement());
    TiXmlPrinter printer;
    printer.SetStreamPrinting();
    document.Accept(&printer);
    EXPECT_EQ(printer.Str(), "<r><a>text<b /></a></r>");
}

class Config : public MachineTest {
  protected:
    Config() { g_RunSettings.bImpersonateUser = false; }
};

TEST_F(Config, HeaderTellsWhereTheFileComesFrom) {
    const auto version = [](const WCHAR* override) {
        g_RunSettings.strVersionOverride = override;
        TiXmlElement root("sentrel_configuration");
        WriteHeader(&root, SecureText());
        EXPECT_EQ(root.Attribute("authentication"), nullptr) << "without a password";
        return root.FirstChildElement("sentrel_version")->GetText() + std::string(" ") +
               root.FirstChildElement("version")->GetText();
    };
    EXPECT_EQ(version(TEXT("")), "7.4.3.1790 7.4.3");
    EXPECT_EQ(version(TEXT("8.0.1.22")), "8.0.1.22 8.0.1");
    EXPECT_EQ(version(TEXT("8..0.1.22")), "8..0.1.22 8..0.1");
    EXPECT_EQ(version(TEXT("7.4")), "7.4.3.1790 7.4.3");
    EXPECT_EQ(version(TEXT("1.2.3.4.5")), "7.4.3.1790 7.4.3");
    InstallProduct(kFirstUpgradeCode, kSomeProduct, TEXT("8.12.0.7"));
    EXPECT_EQ(version(TEXT("7.4")), "8.12.0.7 8.12.0");

    SetRaw(HKEY_LOCAL_MACHINE, kEndpointControlKey, kPolicyNameValue, WString(300, WCHAR{0xFC}));
    TiXmlElement root("sentrel_configuration");
    WriteHeader(&root, SecureText());
    const std::size_t fitting = 259 / WideToAnsi(TEXT("\u00FC")).size();
    EXPECT_EQ(root.Attribute("policy"), WideToAnsi(WString(fitting, WCHAR{0xFC})));
}

TEST_F(Config, VerifierKnowsThePassword) {
    const SecureText password(kPassword);
    const std::string verifier = MakePasswordVerifier(password);
    EXPECT_EQ(verifier.size(), 58u);
    EXPECT_TRUE(CheckPasswordVerifier(verifier, password));
    EXPECT_FALSE(CheckPasswordVerifier(verifier, SecureText(TEXT("other phrase"))));
    const std::string quoted = MakePasswordVerifier(SecureText(TEXT("\"pass phrase\"")));
    EXPECT_TRUE(CheckPasswordVerifier(quoted, password));
    EXPECT_FALSE(CheckPasswordVerifier("00", password));
}

// --- The module run -----------------------------------------------------------------------------

class ModuleRun : public Config {
  protected:
    ModuleRun() {
        SetRaw(HKEY_LOCAL_MACHINE, kProductKey, TEXT("InstallDir"), Wide(folder_));
        std::filesystem::create_directory(folder_);
    }

    // What the probes tell of one run.
    std::string Calls(const WCHAR* modules, const WCHAR* operation, bool succeeds = true) {
        std::filesystem::remove(folder_ / "calls");
        EXPECT_EQ(
            HaveSucceeded(RunModules(TEXT("file"), SplitModuleText(modules), Operation(operation),
                                     TEXT("7x"), SecureText(TEXT("pw")))),
            succeeds);
        return ReadWholeFile(folder_ / "calls");
    }

    std::filesystem::path folder_ = ScratchFolder() / "client";
};

TEST_F(ModuleRun, CallsWhatTheOperationAsksFor) {
    for (const char* library : {"cfmsystem", "cfmvpn", "cfmav", "cfmwf"}) {
        InstallLibrary("probe_plugin", folder_, library);
    }
    const struct {
        const WCHAR* modules;
        const WCHAR* operation;
        const char* calls;
    } cases[] = {
        {TEXT("vpn  av"), TEXT("export"), "cfmvpn ExportToXml 7x pw\ncfmav ExportToXml 7x pw\n"},
        {TEXT("all av"), TEXT("import_settings"),
         "cfmsystem ImportFromXml 7x pw\ncfmvpn ImportFromXml 7x pw\ncfmav ImportFromXml 7x pw\n"
         "cfmwf ImportFromXml 7x pw\ncfmav ImportFromXml 7x pw\n"},
        {TEXT("VPN nothing "), TEXT("export"), ""},
        {TEXT("system"), TEXT("export-install"), "cfmsystem AdvancedOp export-install 7x pw\n"},
        {TEXT("vpn webfilter"), TEXT("import_push_config"),
         "cfmvpn AdvancedOp gwy_import 0 pw\ncfmwf ImportFromXml 7x pw\n"},
        {TEXT("vpn webfilter"), TEXT("import_installer_config"),
         "cfmvpn AdvancedOp import_installer_config 7x pw\ncfmwf ImportFromXml 7x pw\n"},
        {TEXT("webfilter"), TEXT("import_installer_config+ca"), "cfmwf ImportFromXml 7x pw\n"},
        {TEXT("webfilter"), TEXT("import_gwyip_config"),
         "cfmwf AdvancedOp import_gwyip_config 7x pw\n"},
        {TEXT("vpn"), TEXT("exportvpn"), "cfmvpn AdvancedOp exportvpn 7x pw\n"},
    };
    for (const auto& c : cases) EXPECT_EQ(Calls(c.modules, c.operation), c.calls);

    g_RunSettings.bCallerVerified = true;
    EXPECT_EQ(Calls(TEXT("system av"), TEXT("import")),
              "cfmsystem AdvancedOp import+CA 7x pw\ncfmav ImportFromXml 7x pw\n");
    EXPECT_EQ(Calls(TEXT("system"), TEXT("import_installer_config")),
              "cfmsystem AdvancedOp import_installer_config+ca 7x pw\n");
}

// The central management's imports reach most libraries by their own way; where only VPN is asked
// for, two of them.
TEST_F(ModuleRun, CallsEveryModuleInItsOrder) {
    const char* const libraries[] = {
        "cfmsystem", "cfmvpn",  "cfmav",      "cfmvssoma", "cfmwanopt", "cfmwf",
        "cfmfw",     "cfmvuln", "cfmsandbox", "cfmae",     "cfmusbmon", "cfmcloudscan",
        "cfmac",     "cfmrs",   "cfmztna",    "cfmpam",    "cfmesnac"};
    std::string calls;
    std::string vpnOnlyCalls;
    for (const std::string library : libraries) {
        InstallLibrary("probe_plugin", folder_, library);
        const bool isPlain =
            std::set<std::string>{"cfmvssoma", "cfmwanopt", "cfmwf"}.contains(library);
        const bool isVpn = library == "cfmvpn" || library == "cfmpam";
        const char* const plain = " ImportFromXml 7x pw\n";
        const char* const advanced = " AdvancedOp gwy_import 0 pw\n";
        calls += library + (isPlain ? plain : advanced);
        vpnOnlyCalls += library + (isVpn ? advanced : plain);
    }
    EXPECT_EQ(Calls(TEXT("*"), TEXT("import_push_config")), calls);
    g_RunSettings.bVpnOnly = true;
    EXPECT_EQ(Calls(TEXT("all"), TEXT("import_push_config")), vpnOnlyCalls);
}

TEST_F(ModuleRun, OnlyAPluginsOwnErrorCounts) {
    InstallLibrary("probe_plugin", folder_, "cfmav");
    InstallLibrary("probe_plugin_without_import", folder_, "cfmwf");
    const auto extension = FileOfBuild("probe_plugin").extension();
    WriteWholeFile((folder_ / "cfmvpn").replace_extension(extension), "no library");
    EXPECT_EQ(Calls(TEXT("vpn webfilter firewall av"), TEXT("import")),
              "cfmav ImportFromXml 7x pw\n");
    WriteWholeFile(folder_ / "fail", "");
    EXPECT_EQ(Calls(TEXT("av webfilter"), TEXT("export"), false),
              "cfmav ExportToXml 7x pw\ncfmwf ExportToXml 7x pw\n")
        << "the run goes on behind a failure";
    InstallLibrary("probe_plugin", folder_, "cfmsystem");
    EXPECT_EQ(Calls(TEXT("system"), TEXT("import+CA"), true),
              "cfmsystem AdvancedOp import+CA 7x pw\n")
        << "the result of a passed-through operation is not examined";
}

// --- Working copies -----------------------------------------------------------------------------

class WorkingCopies : public Config {
  protected:
    // The plain copy's content; empty when there is none. Nothing else may be left behind.
    std::string Prepare(const std::string& stored, const WCHAR* password = kPassword) {
        WriteWholeFile(source_, stored);
        std::string content;
        {
            const WorkingCopy copy(Wide(source_), 0, SecureText(password));
            // Wine does not list a folder that is held open.
            EXPECT_LE(FilesInTemporaryFolder().size(), copy.Path().empty() ? 0u : 1u);
            if (!copy.Path().empty()) {
                const std::filesystem::path path(copy.Path());
                EXPECT_TRUE(OnlyOwnerMayUse(path));
                content = ReadWholeFile(path);
            }
        }
        EXPECT_TRUE(FilesInTemporaryFolder().empty());
        return content;
    }

    const std::filesystem::path source_ = ScratchFolder() / "stored";
    const std::string rootOnly_ = "<sentrel_configuration></sentrel_configuration>";
};

TEST_F(WorkingCopies, OpensEveryStoredFormAndNothingElse) {
    EXPECT_EQ(Prepare(kDocument), kDocument);
    EXPECT_EQ(Prepare(rootOnly_, TEXT("")), rootOnly_);
    EXPECT_EQ(Prepare(Encrypted(rootOnly_ + "trailing", kPassword)), rootOnly_);
    EXPECT_EQ(
        Prepare(Encrypted(rootOnly_.substr(0, 23) + std::string(1, 0) + rootOnly_, kPassword)),
        rootOnly_.substr(0, 23));
    const OpenedPassPhrase a(BuiltInPassPhrase::kA);
    const OpenedPassPhrase b(BuiltInPassPhrase::kB);
    for (const std::string& form :
         {Encrypted(kDocument, kPassword), "Enc " + Encrypted(kDocument, kPassword),
          Encrypted(kDocument, TEXT("\"pass phrase\"")), Encrypted(kDocument, a.c_str()),
          "Enc " + Encrypted(kDocument, b.c_str())}) {
        EXPECT_EQ(Prepare(form), kDocument);
    }

    ASSERT_TRUE(DataProtectInit());
    WriteWholeFile(source_, kDocument);
    ASSERT_EQ(DataProtectFile(Wide(source_).c_str(), ProtectionScope::kMachine), kDataOk);
    const std::string stored = ReadWholeFile(source_);
    EXPECT_EQ(Prepare(stored, TEXT("")), kDocument);
    EXPECT_EQ(ReadWholeFile(source_), stored) << "the file itself is left alone";

    // Nothing else, and B belongs to marked files.
    for (const std::string& form :
         {Encrypted(kDocument, TEXT("other")), "Enc " + Encrypted(kDocument, TEXT("other")),
          Encrypted(kDocument, b.c_str()), Encrypted("no document", kPassword)}) {
        EXPECT_EQ(Prepare(form), "");
    }
    EXPECT_EQ(Prepare("", TEXT("")), "");
}

TEST_F(WorkingCopies, NothingOfAFileStaysInMemory) {
    const HiddenPattern pattern = PartOf(MadeSecret(1));
    const SecureText password(kPassword);
    {
        const SecureText secret = MadeSecret(1);
        SecureBytes document(rootOnly_.begin(), rootOnly_.end());
        document.insert(document.end(), reinterpret_cast<const BYTE*>(secret.c_str()),
                        reinterpret_cast<const BYTE*>(secret.c_str() + secret.size()));
        SecureBytes cipher(document.size() + kCipherOverhead);
        auto size = static_cast<DWORD>(cipher.size());
        ASSERT_EQ(encrypt_buffer(document.data(), static_cast<DWORD>(document.size()),
                                 cipher.data(), &size, kPassword),
                  0);
        WriteSecret(source_, cipher.data(), cipher.size());
    }
    EXPECT_FALSE(WorkingCopy(Wide(source_), 0, password).Path().empty());
    EXPECT_FALSE(pattern.StandsInMemory());
}

}  // namespace
