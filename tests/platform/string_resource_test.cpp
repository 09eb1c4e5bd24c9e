#include <windows.h>

#include <cstring>
#include <thread>

#include "tests/support/machine.h"
#include "tests/support/machine_port.h"
#include "tests/support/test_strings.h"

namespace {

using Text = std::basic_string<WCHAR>;

Text Load(UINT id, HINSTANCE module = nullptr) {
    WCHAR text[64] = TEXT("untouched");
    const int length = LoadStringW(module, id, text, 64);
    EXPECT_TRUE(length == 0 || length == static_cast<int>(Text(text).size()));
    return length == 0 ? Text(TEXT("none")) : Text(text);
}

class StringResource : public MachineTest {
  protected:
    void SetUp() override { SKIP_WITHOUT(kLocales); }
    StringResource() {
        for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) SetVariable(name, "");
    }
};

TEST_F(StringResource, TheUsersLanguageComesFromItsLocale) {
    const std::pair<const char*, LANGID> languages[] = {
        {"", 0x0409},      {"C", 0x0409},           {"POSIX", 0x0409},      {"C.UTF-8", 0x0409},
        {"de", 0x0407},    {"de_LU.UTF-8", 0x0407}, {"de_AT@euro", 0x0C07}, {"xx_YY", 0x0409},
        {"zh_TW", 0x0404}, {"zh_HK.Big5", 0x0C04},  {"es_ES.UTF-8", 0x0C0A}};
    for (const auto& [locale, language] : languages) {
        SetVariable("LANG", locale);
        EXPECT_EQ(GetUserDefaultUILanguage(), language) << locale;
    }
    SetVariable("LC_MESSAGES", "fr_CA.UTF-8");
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0C0C);
    SetVariable("LC_ALL", "ja_JP.UTF-8");
    EXPECT_EQ(GetUserDefaultUILanguage(), 0x0411);
}

TEST_F(StringResource, StringsFollowTheThreadsLanguageAndFallBack) {
    EXPECT_EQ(Load(kStringInAll), TEXT("English"));
    SetVariable("LANG", "de_DE.UTF-8");
    EXPECT_EQ(Load(kStringInAll), TEXT("German"));
    EXPECT_EQ(GetThreadUILanguage(), 0x0407);

    EXPECT_EQ(SetThreadUILanguage(0x0411), 0x0411);
    EXPECT_EQ(Load(kStringInAll, GetModuleHandleW(nullptr)), TEXT("Japanese"));
    std::thread([] { EXPECT_EQ(Load(kStringInAll), TEXT("German")); }).join();
    SetThreadUILanguage(0x0814);
    EXPECT_EQ(Load(kStringInAll), TEXT("Norwegian")) << "the same primary language";
    SetThreadUILanguage(0x0415);
    EXPECT_EQ(Load(kStringInAll), TEXT("German")) << "the user's language";
    SetVariable("LANG", "pl_PL.UTF-8");
    EXPECT_EQ(Load(kStringInAll), TEXT("English"));
    EXPECT_EQ(Load(kStringInJapanese), TEXT("only Japanese")) << "the only one there is";

    SetThreadUILanguage(0);
    EXPECT_TRUE(SetThreadLocale(0x040C));
    EXPECT_EQ(Load(kStringInAll), TEXT("French"));
}

}  // namespace
