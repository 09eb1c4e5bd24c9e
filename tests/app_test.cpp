// The command line as settings, and the language in which the tool speaks.
#include <product_registry.h>
#include <utilsdll.h>

#include "app/command_line.h"
#include "app/run_driver.h"
#include "app/services/run_settings.h"
#include "app/services/string_ids.h"
#include "app/ui_language.h"
#include "common/handles.h"
#include "common/path.h"
#include "protect/encrypted_forms.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"

namespace {

class CommandLine : public MachineTest {
  protected:
    // What a command line comes to, of words with "|" between them.
    static const RunSettings& Parsed(const WString& commandLine,
                                     std::optional<int> exitCode = std::nullopt) {
        std::vector<WString> words = SplitText(TEXT("SNConfig|") + commandLine, TEXT("|"));
        std::vector<WCHAR*> argv;
        for (WString& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        EXPECT_EQ(ParseCommandLine(static_cast<int>(words.size()), argv.data()), exitCode);
        return g_RunSettings;
    }
};

TEST_F(CommandLine, FillsTheSettings) {
    const RunSettings& s =
        Parsed(TEXT("-dquf|a b.xml|-mvpn|-m|av|word|-o|import|-i|3|-k|ü|-v|1.2.3.4|-O|out|-s|-x|")
                   TEXT("-t|abc|--VPN=1|--NOIMPERSONATEUSER|x"));
    EXPECT_TRUE(s.bDebug && s.bQuiet && s.bIncludeUserConfig && s.bVpnOnly && !s.bImpersonateUser);
    EXPECT_FALSE(s.bCallerVerified);
    EXPECT_EQ(s.strConfigFile, TEXT("a b.xml"));
    EXPECT_EQ(s.strModule, TEXT("av"));
    EXPECT_EQ(s.strOperation, TEXT("import"));
    EXPECT_EQ(s.strSessionId, TEXT("3"));
    EXPECT_EQ(s.strUnlockPassword.c_str(), WString(TEXT("ü")));
    EXPECT_EQ(s.strVersionOverride, TEXT("1.2.3.4"));
    EXPECT_EQ(s.strOutputFile, TEXT("out"));
    EXPECT_EQ(s.strPassword.c_str(), WString(TEXT("abc"))) << "-t knows no length rule";

    Parsed(TEXT(""));
    EXPECT_TRUE(s.strConfigFile.empty() && s.strPassword.empty() && s.bImpersonateUser &&
                !s.bDebug);
}

TEST_F(CommandLine, TakesPasswordsPlainAndEncrypted) {
    const RunSettings& s = Parsed(TEXT("-p|seven77|-d"), kExitShortPassword);
    EXPECT_FALSE(s.bDebug) << "what follows is not looked at";
    Parsed(TEXT("-p|eight888"));
    EXPECT_EQ(s.strPassword.c_str(), WString(TEXT("eight888")));
    Parsed(TEXT("-p|eight888|-p|") + EncryptPasswordArgument(TEXT("abc")));
    EXPECT_EQ(s.strPassword.c_str(), WString(TEXT("abc")));
    Parsed(TEXT("-p|eight888|-p|x"), kExitShortPassword);
}

TEST_F(CommandLine, ACallerProvesThatItIsTheParent) {
    const WString own = EncryptProcessIdArgument(GetCurrentProcessId());
    EXPECT_FALSE(Parsed(TEXT("-c|") + own).bCallerVerified);
    EXPECT_FALSE(Parsed(TEXT("-c|00FF")).bCallerVerified);
    if (Role().empty()) {
        RunRole(WideToUtf8(own));
        return;
    }
    const WString ofParent = TEXT("-c|") + Utf8ToWide(Role());
    EXPECT_TRUE(Parsed(ofParent).bCallerVerified);
    EXPECT_TRUE(Parsed(ofParent + TEXT("|-c|zz")).bCallerVerified) << "this changes nothing";
}

TEST_F(CommandLine, ExpandsPathsThatFit) {
    ASSERT_TRUE(SetEnvironmentVariableW(TEXT("SN_PLACE"), TEXT("/some/where")));
    const RunSettings& s = Parsed(TEXT("-f|%SN_PLACE%/a|-O|%SN_MISSING%"));
    EXPECT_EQ(s.strConfigFile, TEXT("/some/where/a"));
    EXPECT_EQ(s.strOutputFile, TEXT("%SN_MISSING%"));
    for (const std::size_t length : {249u, 250u}) {  // 11 of the 260 characters are the variable's
        Parsed(TEXT("-f|%SN_PLACE%") + WString(length, 'x'));
        EXPECT_EQ(s.strConfigFile.front(), length == 249 ? '/' : '%');
    }
}

TEST_F(CommandLine, ARunLeavesNothingOfItselfInTheProcess) {
    WriteWholeFile(EndpointFolder() / "virtualization", "");  // on in every process
    WString words[] = {TEXT("SNConfig"), TEXT("-qp"), TEXT("pass phrase"), TEXT("-k"),
                       TEXT("unlock"),   TEXT("-m"),  TEXT("nothing")};
    std::vector<WCHAR*> argv;
    for (WString& word : words) argv.push_back(word.data());
    EXPECT_EQ(RunTool(static_cast<int>(argv.size()), argv.data()), 0);
    EXPECT_TRUE(g_RunSettings.strPassword.empty() && g_RunSettings.strUnlockPassword.empty() &&
                !g_RunSettings.bQuiet);
    SKIP_WITHOUT(kSetSessions);
    UniqueHandle token;
    DWORD isVirtualized = 0;
    DWORD size = 0;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()));
    EXPECT_TRUE(GetTokenInformation(token.get(), TokenVirtualizationEnabled, &isVirtualized,
                                    sizeof isVirtualized, &size));
    EXPECT_EQ(isVirtualized, 1U) << "switched on again";
}

TEST_F(CommandLine, SpeaksTheConfiguredLanguage) {
    const struct {
        DWORD configured;
        LANGID threadLanguage;
        LCID strings;  // the language in which there are some
        const WCHAR* backupCompleted;
    } cases[] = {
        {0x0407, 0x0407, 0x0407, TEXT("Sicherung erfolgreich.")},
        {0x0C04, 0x0404, 0x0404, TEXT("備份完畢.")},  // Hong Kong reads Taiwan's strings
        {0x0414, 0x0814, 0x0414, TEXT("Sikkerhetskopiering fullført.")},
        {0x0C0A, 0x040A, 0x0C0A, TEXT("Respaldo completo.")},
        {0x0415, 0x0415, 0x0409, TEXT("Backup completed.")},  // no Polish strings
        {0x1404, 0x0404, 0x0404, TEXT("備份完畢.")},
        {0x1004, 0x0804, 0x0804, TEXT("备份完毕.")},
        {0, 0x0409, 0x0409, TEXT("Backup completed.")},  // none chosen: the user's own
        {0x0427, 0x0427, 0x0427, TEXT("Atsarginės kopijos kūrimas baigtas.")},
    };
    for (const auto& c : cases) {
        SetRaw(HKEY_LOCAL_MACHINE, kUiKey, kLanguageValue, REG_DWORD, &c.configured,
               sizeof c.configured);
        EXPECT_TRUE(SetUiLanguage()) << c.configured;
        if (TargetHas(kThreadLanguages)) {
            EXPECT_EQ(GetThreadUILanguage(), c.threadLanguage);
        } else {
            SetThreadLocale(c.strings);  // which is what strings follow there
        }
        WCHAR text[512] = {};
        LoadStringW(GetModuleHandleW(nullptr), IDS_BACKUP_COMPLETED, text, 512);
        EXPECT_EQ(text, WString(c.backupCompleted)) << c.configured;
    }
    SKIP_WITHOUT(kThreadLanguages);
}

}  // namespace
