// The command line as settings, and the language in which the tool speaks.
#include <utilsdll.h>

#include "app/command_line.h"
#include "app/run_settings.h"
#include "app/string_ids.h"
#include "app/ui_language.h"
#include "common/path.h"
#include "protect/encrypted_forms.h"
#include "registry/locations.h"
#include "registry/registry.h"
#include "tests/support/machine.h"

namespace {

class CommandLine : public MachineTest {
  protected:
    // Of words with "|" between them.
    static std::optional<int> Parse(const WString& commandLine) {
        std::vector<WString> words = SplitText(TEXT("SNConfig|") + commandLine, TEXT("|"));
        std::vector<WCHAR*> argv;
        argv.reserve(words.size() + 1);
        for (WString& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        return ParseCommandLine(static_cast<int>(words.size()), argv.data());
    }
    static WString Password() { return g_RunSettings.strPassword.c_str(); }
};

TEST_F(CommandLine, FillsTheSettings) {
    EXPECT_EQ(Parse(TEXT("-dquf|a b.xml|-mvpn|-m|av|word|-o|import|-i|3|-k|ü|-v|1.2.3.4|-O|out|-s|")
                        TEXT("-x|-t|abc|--VPN=1|--NOIMPERSONATEUSER|x")),
              std::nullopt);
    const RunSettings& s = g_RunSettings;
    EXPECT_TRUE(s.bDebug && s.bQuiet && s.bIncludeUserConfig && s.bVpnOnly && !s.bImpersonateUser);
    EXPECT_FALSE(s.bCallerVerified);
    EXPECT_EQ(s.strConfigFile, TEXT("a b.xml"));
    EXPECT_EQ(s.strModule, TEXT("av"));
    EXPECT_EQ(s.strOperation, TEXT("import"));
    EXPECT_EQ(s.strSessionId, TEXT("3"));
    EXPECT_EQ(WString(s.strUnlockPassword.c_str()), TEXT("ü"));
    EXPECT_EQ(s.strVersionOverride, TEXT("1.2.3.4"));
    EXPECT_EQ(s.strOutputFile, TEXT("out"));
    EXPECT_EQ(Password(), TEXT("abc")) << "-t knows no length rule";

    EXPECT_EQ(Parse(TEXT("")), std::nullopt);
    EXPECT_TRUE(s.strConfigFile.empty() && s.strPassword.empty() && s.bImpersonateUser &&
                !s.bDebug);
}

TEST_F(CommandLine, TakesPasswordsPlainAndEncrypted) {
    EXPECT_EQ(Parse(TEXT("-p|seven77|-d")), kExitShortPassword);
    EXPECT_FALSE(g_RunSettings.bDebug) << "what follows is not looked at";
    EXPECT_EQ(Parse(TEXT("-p|eight888")), std::nullopt);
    EXPECT_EQ(Password(), TEXT("eight888"));
    EXPECT_EQ(Parse(TEXT("-p|eight888|-p|") + EncryptPasswordArgument(TEXT("abc"))), std::nullopt);
    EXPECT_EQ(Password(), TEXT("abc"));
    EXPECT_EQ(Parse(TEXT("-p|eight888|-p|x")), kExitShortPassword);
}

TEST_F(CommandLine, ACallerProvesThatItIsTheParent) {
    EXPECT_EQ(Parse(TEXT("-c|") + EncryptProcessIdArgument(GetCurrentProcessId())), std::nullopt);
    EXPECT_FALSE(g_RunSettings.bCallerVerified);
    EXPECT_EQ(Parse(TEXT("-c|00FF")), std::nullopt);
    EXPECT_FALSE(g_RunSettings.bCallerVerified);
    if (Role().empty()) {
        RunRole(WideToUtf8(EncryptProcessIdArgument(GetCurrentProcessId())));
        return;
    }
    EXPECT_EQ(Parse(TEXT("-c|") + Utf8ToWide(Role())), std::nullopt);
    EXPECT_TRUE(g_RunSettings.bCallerVerified);
    EXPECT_EQ(Parse(TEXT("-c|") + Utf8ToWide(Role()) + TEXT("|-c|zz")), std::nullopt);
    EXPECT_TRUE(g_RunSettings.bCallerVerified) << "what does not decrypt changes nothing";
}

TEST_F(CommandLine, ExpandsPathsThatFit) {
    ASSERT_TRUE(SetEnvironmentVariableW(TEXT("SN_PLACE"), TEXT("/some/where")));
    EXPECT_EQ(Parse(TEXT("-f|%SN_PLACE%/a|-O|%SN_MISSING%")), std::nullopt);
    EXPECT_EQ(g_RunSettings.strConfigFile, TEXT("/some/where/a"));
    EXPECT_EQ(g_RunSettings.strOutputFile, TEXT("%SN_MISSING%"));
    for (const std::size_t length : {249u, 250u}) {  // 11 of the 260 characters are the variable's
        EXPECT_EQ(Parse(TEXT("-f|%SN_PLACE%") + WString(length, 'x')), std::nullopt);
        EXPECT_EQ(g_RunSettings.strConfigFile.front(), length == 249 ? '/' : '%');
    }
}

TEST_F(CommandLine, SpeaksTheConfiguredLanguage) {
    CRegistry key(true, false);
    ASSERT_TRUE(key.CreateKey(kUiKey));
    struct Case {
        DWORD configured;
        LANGID threadLanguage;
        LCID strings;  // the language in which there are some
        const WCHAR* backupCompleted;
    };
    const Case cases[] = {
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
    for (const Case& c : cases) {
        ASSERT_TRUE(key.SetDWORD(kLanguageValue, c.configured));
        EXPECT_TRUE(SetUiLanguage()) << c.configured;
        if (TargetHas(kThreadLanguages)) {
            EXPECT_EQ(GetThreadUILanguage(), c.threadLanguage);
        } else {
            SetThreadLocale(c.strings);  // which is what strings follow there
        }
        WCHAR text[512] = {};
        LoadStringW(GetModuleHandleW(nullptr), IDS_BACKUP_COMPLETED, text, 512);
        EXPECT_EQ(WString(text), c.backupCompleted) << c.configured;
    }
    SKIP_WITHOUT(kThreadLanguages);
}

}  // namespace
