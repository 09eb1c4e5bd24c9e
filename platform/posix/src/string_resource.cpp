#include <libloaderapi.h>
#include <platform_strings.h>
#include <winuser.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "language.h"
#include "last_error.h"

using namespace platform;

namespace {

std::span<const platform_string> StringsOfProgram() {
    if (&platform_string_table == nullptr) return {};
    return {platform_string_table.rows, platform_string_table.count};
}

// The string in a language, else in its neutral form, else in another of its primary language; null
// when there is none.
const WCHAR* FindInLanguage(std::span<const platform_string> strings, UINT id, LANGID language) {
    const LANGID primary = PRIMARYLANGID(language);
    const WCHAR* neutral = nullptr;
    const WCHAR* related = nullptr;
    for (const platform_string& string : strings) {
        if (string.id != id) continue;
        if (string.language == language) return string.text;
        if (string.language == primary) neutral = string.text;
        if (PRIMARYLANGID(string.language) == primary && related == nullptr) related = string.text;
    }
    return neutral != nullptr ? neutral : related;
}

const WCHAR* FindString(std::span<const platform_string> strings, UINT id) {
    for (const LANGID language : ThreadLanguages()) {
        if (const WCHAR* text = FindInLanguage(strings, id, language)) return text;
    }
    const auto first =
        std::find_if(strings.begin(), strings.end(),
                     [id](const platform_string& string) { return string.id == id; });
    return first == strings.end() ? nullptr : first->text;
}

}  // namespace

extern "C" int WINAPI LoadStringW(HINSTANCE hInstance, UINT uID, LPWSTR lpBuffer,
                                  int cchBufferMax) {
    if (lpBuffer == nullptr || cchBufferMax < 0) return Fail(ERROR_INVALID_PARAMETER);
    const bool isProgram = hInstance == nullptr || hInstance == GetModuleHandleW(nullptr);
    const WCHAR* const text = isProgram ? FindString(StringsOfProgram(), uID) : nullptr;
    if (text == nullptr) return Fail(ERROR_RESOURCE_NAME_NOT_FOUND);

    const std::u16string_view string = text;
    if (cchBufferMax == 0) {
        std::memcpy(lpBuffer, &text, sizeof text);
        return static_cast<int>(string.size());
    }
    const auto room = static_cast<std::size_t>(cchBufferMax - 1);
    const std::size_t length = string.copy(lpBuffer, std::min(room, string.size()));
    lpBuffer[length] = 0;
    return static_cast<int>(length);
}
