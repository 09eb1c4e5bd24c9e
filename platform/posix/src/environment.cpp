#include <processenv.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "last_error.h"
#include "text.h"

using namespace platform;

extern char** environ;  // NOLINT(readability-redundant-declaration): not every C library has it

namespace {

// The C library's environment knows no locks.
std::mutex environmentMutex;

struct Variable {
    std::string name;
    std::string value;
};

// A variable by its exact name, else the first whose name differs by case alone.
std::optional<Variable> FindVariable(std::u16string_view name) {
    std::optional<Variable> similar;
    const std::u16string upperName = UpperCase(name);
    const std::string exactName = BytesOf(name);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const auto equals = text.find('=');
        if (equals == std::string_view::npos) continue;
        Variable variable{std::string(text.substr(0, equals)),
                          std::string(text.substr(equals + 1))};
        if (variable.name == exactName) return variable;
        if (!similar && UpperCase(WideOf(variable.name)) == upperName) {
            similar = std::move(variable);
        }
    }
    return similar;
}

bool IsName(LPCWSTR name) {
    const std::u16string_view text = name == nullptr ? u"" : name;
    return !text.empty() && text.find(u'=') == std::u16string_view::npos;
}

std::u16string Expand(std::u16string_view text) {
    std::u16string result;
    while (!text.empty()) {
        const auto start = std::min(text.find(u'%'), text.size());
        result += text.substr(0, start);
        text.remove_prefix(start);
        const auto end = text.find(u'%', 1);
        if (end == std::u16string_view::npos) {
            result += text;
            break;
        }
        if (const auto variable = FindVariable(text.substr(1, end - 1))) {
            result += WideOf(variable->value);
            text.remove_prefix(end + 1);
        } else {
            // The second sign may begin another name.
            result += text.substr(0, end);
            text.remove_prefix(end);
        }
    }
    return result;
}

}  // namespace

extern "C" DWORD WINAPI ExpandEnvironmentStringsW(LPCWSTR lpSrc, LPWSTR lpDst, DWORD nSize) {
    if (lpSrc == nullptr) return Fail<DWORD>(ERROR_INVALID_PARAMETER);
    const std::lock_guard lock(environmentMutex);
    const std::u16string result = Expand(lpSrc);
    if (lpDst != nullptr && result.size() < nSize) *std::ranges::copy(result, lpDst).out = 0;
    return static_cast<DWORD>(result.size()) + 1;
}

extern "C" BOOL WINAPI SetEnvironmentVariableW(LPCWSTR lpName, LPCWSTR lpValue) {
    if (!IsName(lpName)) return Fail(ERROR_INVALID_PARAMETER);
    const std::lock_guard lock(environmentMutex);
    const auto existing = FindVariable(lpName);
    const std::string name = existing ? existing->name : BytesOf(lpName);
    const int failed = lpValue == nullptr ? unsetenv(name.c_str())
                                          : setenv(name.c_str(), BytesOf(lpValue).c_str(), 1);
    return failed == 0 ? TRUE : FailWithErrno(errno);
}

extern "C" int _putenv_s(const char* varname, const char* value) {
    if (varname == nullptr || value == nullptr) return EINVAL;
    const std::lock_guard lock(environmentMutex);
    const int failed = *value == '\0' ? unsetenv(varname) : setenv(varname, value, 1);
    return failed == 0 ? 0 : errno;
}

extern "C" DWORD WINAPI GetCurrentDirectoryW(DWORD nBufferLength, LPWSTR lpBuffer) {
    struct Free {
        void operator()(char* text) const { std::free(text); }
    };
    const std::unique_ptr<char, Free> folder(getcwd(nullptr, 0));
    if (!folder) return static_cast<DWORD>(FailWithErrno(errno));
    const std::u16string text = WideOf(folder.get());
    if (text.size() >= nBufferLength) return static_cast<DWORD>(text.size()) + 1;
    *std::ranges::copy(text, lpBuffer).out = 0;
    return static_cast<DWORD>(text.size());
}
