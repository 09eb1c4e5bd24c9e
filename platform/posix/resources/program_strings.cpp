// The program's string table as a resource of this target: what the resource compiler makes of the
// same rows on Windows.
#include <platform_strings.h>

#include <iterator>

#include "app/services/string_ids.h"

namespace {

constexpr LANGID MakeLanguage(unsigned primary, unsigned sub) {
    return static_cast<LANGID>(sub << 10 | primary);
}

#define SN_LANGUAGE(primary, sub) \
    {                             \
        MakeLanguage(primary, sub), {
#define SN_STRING(id, text) {id, TEXT(text)},
#define SN_END() \
    }            \
    }            \
    ,
struct String {
    UINT id;
    const WCHAR* text;
};
struct Language {
    LANGID id;
    String strings[12];
};
constexpr Language kLanguages[] = {
#include "app/string_table.inc"
};

constexpr std::size_t kRows = std::size(kLanguages) * std::size(kLanguages[0].strings);

struct Rows {
    platform_string rows[kRows];
};
constexpr Rows Flatten() {
    Rows flat = {};
    std::size_t next = 0;
    for (const Language& language : kLanguages) {
        for (const String& string : language.strings) {
            flat.rows[next++] = {language.id, string.id, string.text};
        }
    }
    return flat;
}
constexpr Rows kRowsOfAllLanguages = Flatten();

}  // namespace

const platform_strings platform_string_table = {kRowsOfAllLanguages.rows, kRows};
