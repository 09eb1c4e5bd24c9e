#include "common/password_input.h"

#include <algorithm>
#include <atomic>

#include "common/console_text.h"
#include "common/file.h"
#include "common/format.h"

namespace {

constexpr DWORD kMaxLine = 4096;  // bytes, or characters on a console, with the line's end

using SecureUnits = std::vector<WCHAR, WipingAllocator<WCHAR>>;

PasswordResult Fault(WString fault) {
    return {std::nullopt, std::move(fault)};
}

// Takes the password out of a line.
PasswordResult TakePassword(const SecureUnits& line) {
    WStringView text(line.data(), line.size());
    constexpr WCHAR kByteOrderMark = 0xFEFF;
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(1);
    if (text.ends_with(TEXT('\n'))) text.remove_suffix(1);
    if (text.ends_with(TEXT('\r'))) text.remove_suffix(1);
    if (text.empty()) return Fault(TEXT("the password is empty"));
    if (text.find(WCHAR{0}) != WStringView::npos) return Fault(TEXT("the password holds a NUL"));
    return {SecureText(text), {}};
}

// --- A console ----------------------------------------------------------------------------------

HANDLE Input() {
    return GetStdHandle(STD_INPUT_HANDLE);
}

// What the console was set to before what is typed was hidden.
std::atomic<DWORD> modeBefore = 0;

// Runs on a thread of its own, before the system ends the process.
BOOL WINAPI ShowTypingAgain(DWORD /*event*/) {
    SetConsoleMode(Input(), modeBefore);
    return FALSE;
}

// While it lives the console does not show what is typed.
class WithoutEcho {
  public:
    explicit WithoutEcho(DWORD mode) {
        modeBefore = mode;
        SetConsoleCtrlHandler(ShowTypingAgain, TRUE);
        SetConsoleMode(Input(), mode & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
    }
    WithoutEcho(const WithoutEcho&) = delete;
    WithoutEcho& operator=(const WithoutEcho&) = delete;
    ~WithoutEcho() {
        SetConsoleMode(Input(), modeBefore);
        SetConsoleCtrlHandler(ShowTypingAgain, FALSE);
    }
};

// --- A pipe or a file ---------------------------------------------------------------------------

// A line with its end; what follows is left to the next reader.
SecureBytes ReadLineBytes(HANDLE input) {
    SecureBytes line;
    BYTE byte = 0;
    DWORD got = 0;
    while (line.size() < kMaxLine && (line.empty() || line.back() != '\n') &&
           ReadFile(input, &byte, 1, &got, nullptr) && got == 1) {
        line.push_back(byte);
    }
    WipeMemory(&byte, sizeof byte);
    return line;
}

// The characters of UTF-8 bytes; false when they are none.
bool Decode(const SecureBytes& bytes, SecureUnits& units) {
    units.resize(bytes.size());  // UTF-8 has no more UTF-16 units than bytes
    const int size = MultiByteToWideChar(
        CP_UTF8, MB_ERR_INVALID_CHARS, reinterpret_cast<const char*>(bytes.data()),
        static_cast<int>(bytes.size()), units.data(), static_cast<int>(units.size()));
    units.resize(static_cast<std::size_t>(std::max(size, 0)));
    return size > 0;
}

PasswordResult PasswordFromStream(HANDLE input) {
    const SecureBytes bytes = ReadLineBytes(input);
    SecureUnits line;
    if (bytes.size() == kMaxLine) return Fault(TEXT("the password is too long"));
    if (!bytes.empty() && !Decode(bytes, line)) return Fault(TEXT("the password is not in UTF-8"));
    return TakePassword(line);
}

}  // namespace

bool IsConsoleInput() {
    DWORD mode = 0;
    return GetConsoleMode(Input(), &mode) != FALSE;
}

PasswordResult PasswordFromConsole(const WCHAR* prompt) {
    DWORD mode = 0;
    if (!GetConsoleMode(Input(), &mode)) return Fault(TEXT("there is no terminal to ask on"));
    SecureUnits line(kMaxLine);
    DWORD got = 0;
    {
        const WithoutEcho silent(mode);
        WriteErrorText(prompt);
        if (!ReadConsoleW(Input(), line.data(), kMaxLine, &got, nullptr)) got = 0;
    }
    WriteErrorText(TEXT("\n"));
    if (got == kMaxLine) return Fault(TEXT("the password is too long"));
    line.resize(got);
    return TakePassword(line);
}

PasswordResult NewPasswordFromConsole(const WCHAR* prompt, const WCHAR* promptAgain) {
    PasswordResult first = PasswordFromConsole(prompt);
    if (!first.password) return first;
    const PasswordResult second = PasswordFromConsole(promptAgain);
    if (!second.password || WStringView(first.password->c_str()) != second.password->c_str()) {
        return Fault(TEXT("the two passwords are not the same"));
    }
    return first;
}

PasswordResult PasswordFromStandardInput() {
    return IsConsoleInput() ? PasswordFromConsole(TEXT("")) : PasswordFromStream(Input());
}

PasswordResult PasswordFromFile(const WString& path) {
    const UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return Fault(FormatWide(TEXT("cannot read %s (error %lu)"), path.c_str(), GetLastError()));
    }
    if (!IsDiskFile(file.get())) {
        return Fault(FormatWide(TEXT("%s is no file on a disk"), path.c_str()));
    }
    return PasswordFromStream(file.get());
}
