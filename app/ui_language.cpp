#include "app/ui_language.h"

#include <product_registry.h>
#include <utilsdll.h>
#include <windows.h>

#include "common/handles.h"

namespace {

struct LanguageRow {
    DWORD from;
    DWORD to;
};

// Languages that share the strings of another. The first match wins.
constexpr LanguageRow kFoldTable[] = {
    {0x1004, 0x0804},  // Chinese, Singapore
    {0x1404, 0x0404},  // Chinese, Macao
    {0x0C04, 0x0404},  // Chinese, Hong Kong
};

// Locales and the UI language that stands for each. The first match wins; a locale that is not
// listed stands for itself.
constexpr LanguageRow kUiLanguageTable[] = {
    {0x0404, 0x0404}, {0x0405, 0x0405}, {0x0406, 0x0406}, {0x0407, 0x0407}, {0x0409, 0x0409},
    {0x040B, 0x040B}, {0x040C, 0x040C}, {0x040E, 0x040E}, {0x0411, 0x0411}, {0x0412, 0x0412},
    {0x0414, 0x0814}, {0x0416, 0x0416}, {0x0415, 0x0415}, {0x0419, 0x0419}, {0x041B, 0x041B},
    {0x041D, 0x041D}, {0x0425, 0x0425}, {0x0426, 0x0426}, {0x0427, 0x0427}, {0x0804, 0x0804},
    {0x0C0A, 0x040A}, {0x0C0C, 0x0C0C},
};

template <std::size_t size>
DWORD LookUp(const LanguageRow (&table)[size], DWORD language, DWORD otherwise) {
    for (const LanguageRow& row : table) {
        if (row.from == language) return row.to;
    }
    return otherwise;
}

// The locale that the client's user interface was set to; 0 when none was chosen there.
DWORD ConfiguredLanguage() {
    const REGSAM view = is64Bit() ? KEY_WOW64_64KEY : 0;
    UniqueRegKey key;
    DWORD language = 0;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kUiKey, 0, KEY_READ | view, key.put()) == ERROR_SUCCESS) {
        reg_getDWORDW(key.get(), kLanguageValue, &language);
    }
    return language;
}

using SetThreadUILanguageFunction = LANGID(WINAPI*)(LANGID language);

SetThreadUILanguageFunction FindSetThreadUILanguage() {
    const HMODULE kernel = GetModuleHandleW(TEXT("kernel32"));
    if (kernel == nullptr) return nullptr;
    const auto address = reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadUILanguage"));
    return reinterpret_cast<SetThreadUILanguageFunction>(address);
}

}  // namespace

bool SetUiLanguage() {
    DWORD language = GetUserDefaultUILanguage();
    if (const DWORD configured = ConfiguredLanguage(); configured != 0) language = configured;
    language = LookUp(kFoldTable, language, language);
    if (language == 0) return false;

    if (!os_is_windows_Vista()) return SetThreadLocale(language) != FALSE;

    const SetThreadUILanguageFunction setThreadUiLanguage = FindSetThreadUILanguage();
    if (setThreadUiLanguage == nullptr) return false;
    const auto requested =
        static_cast<LANGID>(LookUp(kUiLanguageTable, language, LOWORD(language)));
    return setThreadUiLanguage(requested) == requested;
}
