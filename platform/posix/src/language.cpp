#include "language.h"

#include <winnls.h>

#include <cstdlib>
#include <string_view>

#include "last_error.h"

namespace platform {
namespace {

constexpr LANGID kEnglishUs = 0x0409;

// 0: none was set.
thread_local LANGID threadUiLanguage = 0;
thread_local LANGID threadLocale = 0;

struct LocaleRow {
    std::string_view language;
    std::string_view country;
    LANGID id;
};

// The first row of a language also stands for the countries that it does not list.
constexpr LocaleRow kLocales[] = {
    {"ar", "SA", 0x0401}, {"bg", "BG", 0x0402}, {"ca", "ES", 0x0403}, {"cs", "CZ", 0x0405},
    {"da", "DK", 0x0406}, {"de", "DE", 0x0407}, {"de", "CH", 0x0807}, {"de", "AT", 0x0C07},
    {"el", "GR", 0x0408}, {"en", "US", 0x0409}, {"en", "GB", 0x0809}, {"en", "AU", 0x0C09},
    {"en", "CA", 0x1009}, {"es", "ES", 0x0C0A}, {"es", "MX", 0x080A}, {"et", "EE", 0x0425},
    {"fi", "FI", 0x040B}, {"fr", "FR", 0x040C}, {"fr", "BE", 0x080C}, {"fr", "CA", 0x0C0C},
    {"fr", "CH", 0x100C}, {"he", "IL", 0x040D}, {"hr", "HR", 0x041A}, {"hu", "HU", 0x040E},
    {"is", "IS", 0x040F}, {"it", "IT", 0x0410}, {"it", "CH", 0x0810}, {"ja", "JP", 0x0411},
    {"ko", "KR", 0x0412}, {"lt", "LT", 0x0427}, {"lv", "LV", 0x0426}, {"nb", "NO", 0x0414},
    {"nl", "NL", 0x0413}, {"nl", "BE", 0x0813}, {"nn", "NO", 0x0814}, {"no", "NO", 0x0414},
    {"pl", "PL", 0x0415}, {"pt", "BR", 0x0416}, {"pt", "PT", 0x0816}, {"ro", "RO", 0x0418},
    {"ru", "RU", 0x0419}, {"sk", "SK", 0x041B}, {"sl", "SI", 0x0424}, {"sv", "SE", 0x041D},
    {"th", "TH", 0x041E}, {"tr", "TR", 0x041F}, {"uk", "UA", 0x0422}, {"vi", "VN", 0x042A},
    {"zh", "CN", 0x0804}, {"zh", "TW", 0x0404}, {"zh", "HK", 0x0C04}, {"zh", "SG", 0x1004},
    {"zh", "MO", 0x1404},
};

std::string_view LocaleOfEnvironment() {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value != nullptr && *value != '\0') return value;
    }
    return "C";
}

// `locale`: language, perhaps with "_COUNTRY", ".CHARSET" and "@VARIANT".
LANGID LanguageOfLocale(std::string_view locale) {
    const std::string_view name = locale.substr(0, locale.find_first_of(".@"));
    const std::size_t separator = name.find('_');
    const std::string_view language = name.substr(0, separator);
    const std::string_view country =
        separator == std::string_view::npos ? std::string_view() : name.substr(separator + 1);
    LANGID found = 0;
    for (const LocaleRow& row : kLocales) {
        if (row.language != language) continue;
        if (row.country == country) return row.id;
        if (found == 0) found = row.id;
    }
    return found == 0 ? kEnglishUs : found;
}

}  // namespace

std::vector<LANGID> ThreadLanguages() {
    std::vector<LANGID> languages;
    for (const LANGID language :
         {threadUiLanguage, threadLocale, GetUserDefaultUILanguage(), kEnglishUs}) {
        if (language != 0) languages.push_back(language);
    }
    return languages;
}

}  // namespace platform

using namespace platform;

extern "C" {

LANGID WINAPI GetUserDefaultUILanguage() {
    return LanguageOfLocale(LocaleOfEnvironment());
}

LANGID WINAPI SetThreadUILanguage(LANGID LangId) {
    threadUiLanguage = LangId;
    return GetThreadUILanguage();
}

LANGID WINAPI GetThreadUILanguage() {
    return threadUiLanguage != 0 ? threadUiLanguage : GetUserDefaultUILanguage();
}

BOOL WINAPI SetThreadLocale(LCID Locale) {
    if (LOWORD(Locale) == 0) return Fail(ERROR_INVALID_PARAMETER);
    threadLocale = LOWORD(Locale);
    return TRUE;
}
}
