#include <algorithm>

#include "client/snclient/commands.h"
#include "common/console_text.h"
#include "common/format.h"

namespace {

constexpr DWORD kMaxLine = 4096;  // bytes, or characters on a console

using SecureUnits = std::vector<WCHAR, WipingAllocator<WCHAR>>;

// --- A console ----------------------------------------------------------------------------------

// While it lives the console does not show what is typed.
class WithoutEcho {
  public:
    WithoutEcho(HANDLE console, DWORD mode) : console_(console), mode_(mode) {
        SetConsoleMode(console_, mode_ & ~static_cast<DWORD>(ENABLE_ECHO_INPUT));
    }
    WithoutEcho(const WithoutEcho&) = delete;
    WithoutEcho& operator=(const WithoutEcho&) = delete;
    ~WithoutEcho() { SetConsoleMode(console_, mode_); }

  private:
    HANDLE console_;
    DWORD mode_;
};

// The line that is typed, with its end; empty when it cannot be read.
SecureUnits ReadConsoleLine(HANDLE console, DWORD mode) {
    WriteErrorText(TEXT("Password: "));
    SecureUnits line(kMaxLine);
    DWORD got = 0;
    {
        const WithoutEcho silent(console, mode);
        if (!ReadConsoleW(console, line.data(), kMaxLine, &got, nullptr)) got = 0;
    }
    WriteErrorText(TEXT("\n"));
    line.resize(got);
    return line;
}

// --- A pipe or a file ---------------------------------------------------------------------------

// The first line with its end.
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
    if (bytes.empty()) return true;
    const int size = MultiByteToWideChar(
        CP_UTF8, MB_ERR_INVALID_CHARS, reinterpret_cast<const char*>(bytes.data()),
        static_cast<int>(bytes.size()), units.data(), static_cast<int>(units.size()));
    units.resize(static_cast<std::size_t>(std::max(size, 0)));
    return size > 0;
}

// --- The password -------------------------------------------------------------------------------

// The first line of standard input, with its end. Null, or what is wrong with it.
const WCHAR* ReadLine(SecureUnits& line) {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(input, &mode)) {
        line = ReadConsoleLine(input, mode);
    } else if (!Decode(ReadLineBytes(input), line)) {
        return TEXT("the password is not in UTF-8");
    }
    return line.size() == kMaxLine ? TEXT("the password is too long") : nullptr;
}

// Takes the password out of the line. Null, or what is wrong with it.
const WCHAR* TakePassword(const SecureUnits& line, SecureText& password) {
    WStringView text(line.data(), line.size());
    constexpr WCHAR kByteOrderMark = 0xFEFF;
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(1);
    if (text.ends_with(TEXT('\n'))) text.remove_suffix(1);
    if (text.ends_with(TEXT('\r'))) text.remove_suffix(1);
    if (text.empty()) return TEXT("the password is empty");
    if (text.find(WCHAR{0}) != WStringView::npos) return TEXT("the password holds a NUL");
    password = text;
    return nullptr;
}

}  // namespace

int Failed(const WCHAR* format, const WCHAR* subject, DWORD error) {
    WriteErrorText(TEXT("snclient: ") + FormatWide(format, subject, error) + TEXT("\n"));
    return kExitFailed;
}

int WrongArgument(const WCHAR* format, const WCHAR* argument) {
    Failed(format, argument);
    return kExitUsage;
}

std::optional<SecureText> PasswordArgument(const WCHAR* argument) {
    if (WStringView(argument) != TEXT("-")) return SecureText(argument);
    SecureUnits line;
    SecureText password;
    const WCHAR* fault = ReadLine(line);
    if (fault == nullptr) fault = TakePassword(line, password);
    if (fault == nullptr) return password;
    Failed(fault);
    return std::nullopt;
}
