#include <algorithm>

#include "client/snclient/commands.h"
#include "common/console_text.h"
#include "common/format.h"

namespace {

constexpr std::size_t kLongestLine = 4096;  // bytes

// The first line of standard input, without its end.
SecureBytes ReadLine() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    SecureBytes line;
    BYTE byte = 0;
    DWORD got = 0;
    while (line.size() < kLongestLine && ReadFile(input, &byte, 1, &got, nullptr) && got == 1 &&
           byte != '\n') {
        line.push_back(byte);
    }
    WipeMemory(&byte, sizeof byte);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

SecureText TextOf(const SecureBytes& bytes) {
    // UTF-8 has no more UTF-16 units than bytes.
    std::vector<WCHAR, WipingAllocator<WCHAR>> units(bytes.size());
    const int size =
        bytes.empty() ? 0
                      : MultiByteToWideChar(CP_UTF8, 0, reinterpret_cast<const char*>(bytes.data()),
                                            static_cast<int>(bytes.size()), units.data(),
                                            static_cast<int>(units.size()));
    return SecureText({units.data(), static_cast<std::size_t>(std::max(size, 0))});
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

SecureText PasswordArgument(const WCHAR* argument) {
    return WStringView(argument) == TEXT("-") ? TextOf(ReadLine()) : SecureText(argument);
}
