#include <consoleapi.h>
#include <fcntl.h>
#include <processenv.h>
#include <termios.h>
#include <unistd.h>
#include <winbase.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <string>
#include <string_view>

#include "file_object.h"
#include "last_error.h"
#include "text.h"

namespace {

using platform::DescriptorObject;

// The terminal behind a handle; null, with ERROR_INVALID_HANDLE, when it is none.
std::shared_ptr<DescriptorObject> TerminalOf(HANDLE handle) {
    auto stream = platform::ObjectOf<DescriptorObject>(handle);
    if (!stream || isatty(stream->Descriptor()) == 1) return stream;
    platform::Fail(ERROR_INVALID_HANDLE);
    return nullptr;
}

// Opens /dev/null for each standard stream that the program was started without, so that no file
// gets the stream's descriptor and with it the stream's output.
[[gnu::constructor(101)]] void FillMissingStreams() {
    int descriptor = -1;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) close(descriptor);
}

HANDLE HandleOfStream(int descriptor) {
    if (fcntl(descriptor, F_GETFD) < 0) return nullptr;
    return platform::OpenHandle(std::make_shared<DescriptorObject>(descriptor));
}

// A process that is stopped would leave its terminal to others as it set it.
void AllowStops(bool allowed) {
    static std::atomic<sighandler_t> before = SIG_ERR;  // while they are not allowed
    if (allowed) {
        const sighandler_t handler = before.exchange(SIG_ERR);
        if (handler != SIG_ERR) std::signal(SIGTSTP, handler);
    } else {
        sighandler_t allowedBefore = SIG_ERR;
        before.compare_exchange_strong(allowedBefore, std::signal(SIGTSTP, SIG_IGN));
    }
}

}  // namespace

extern "C" HANDLE WINAPI GetStdHandle(DWORD nStdHandle) {
    // The same handles for the whole life of the process.
    static const std::array<HANDLE, 3> streams{
        HandleOfStream(STDIN_FILENO), HandleOfStream(STDOUT_FILENO), HandleOfStream(STDERR_FILENO)};
    switch (nStdHandle) {
        case STD_INPUT_HANDLE:
            return streams[STDIN_FILENO];
        case STD_OUTPUT_HANDLE:
            return streams[STDOUT_FILENO];
        case STD_ERROR_HANDLE:
            return streams[STDERR_FILENO];
        default:
            platform::Fail(ERROR_INVALID_HANDLE);
            return INVALID_HANDLE_VALUE;
    }
}

extern "C" BOOL WINAPI GetConsoleMode(HANDLE hConsoleHandle, LPDWORD lpMode) {
    const auto terminal = TerminalOf(hConsoleHandle);
    if (!terminal) return FALSE;
    termios settings{};
    if (tcgetattr(terminal->Descriptor(), &settings) != 0) return platform::FailWithErrno(errno);
    const DWORD echo = (settings.c_lflag & ECHO) != 0 ? ENABLE_ECHO_INPUT : 0;
    *lpMode = terminal->Descriptor() == STDIN_FILENO
                  ? ENABLE_PROCESSED_INPUT | ENABLE_LINE_INPUT | echo
                  : ENABLE_PROCESSED_OUTPUT | ENABLE_WRAP_AT_EOL_OUTPUT;
    return TRUE;
}

extern "C" BOOL WINAPI SetConsoleMode(HANDLE hConsoleHandle, DWORD dwMode) {
    const auto terminal = TerminalOf(hConsoleHandle);
    if (!terminal) return FALSE;
    termios settings{};
    if (tcgetattr(terminal->Descriptor(), &settings) != 0) return platform::FailWithErrno(errno);
    const bool echo = (dwMode & ENABLE_ECHO_INPUT) != 0;
    settings.c_lflag &= ~tcflag_t{ECHO};
    if (echo) settings.c_lflag |= ECHO;
    if (!echo) AllowStops(false);
    const bool isSet = tcsetattr(terminal->Descriptor(), TCSAFLUSH, &settings) == 0;
    const int error = errno;
    if (echo || !isSet) AllowStops(true);
    return isSet ? TRUE : platform::FailWithErrno(error);
}

extern "C" BOOL WINAPI ReadConsoleW(HANDLE hConsoleInput, LPVOID lpBuffer,
                                    DWORD nNumberOfCharsToRead, LPDWORD lpNumberOfCharsRead,
                                    LPVOID /*pInputControl*/) {
    const auto terminal = TerminalOf(hConsoleInput);
    if (!terminal) return FALSE;
    // UTF-8 has no fewer bytes than UTF-16 units.
    std::string bytes(nNumberOfCharsToRead, '\0');
    const ssize_t got = read(terminal->Descriptor(), bytes.data(), bytes.size());
    if (got < 0) return platform::FailWithErrno(errno);
    std::u16string text = platform::WideOf({bytes.data(), static_cast<std::size_t>(got)});
    text.copy(static_cast<WCHAR*>(lpBuffer), text.size());
    *lpNumberOfCharsRead = static_cast<DWORD>(text.size());
    // It may be a password.
    SecureZeroMemory(text.data(), text.size() * sizeof(WCHAR));
    SecureZeroMemory(bytes.data(), bytes.size());
    return TRUE;
}

extern "C" BOOL WINAPI WriteConsoleW(HANDLE hConsoleOutput, const void* lpBuffer,
                                     DWORD nNumberOfCharsToWrite, LPDWORD lpNumberOfCharsWritten,
                                     LPVOID /*lpReserved*/) {
    if (lpNumberOfCharsWritten != nullptr) *lpNumberOfCharsWritten = 0;
    const auto terminal = TerminalOf(hConsoleOutput);
    if (!terminal) return FALSE;
    const std::u16string_view text(static_cast<const WCHAR*>(lpBuffer), nNumberOfCharsToWrite);
    const std::string bytes = platform::BytesOf(text);
    DWORD written = 0;
    if (!terminal->Write(bytes.data(), static_cast<DWORD>(bytes.size()), written, nullptr))
        return FALSE;
    if (lpNumberOfCharsWritten != nullptr) *lpNumberOfCharsWritten = nNumberOfCharsToWrite;
    return TRUE;
}
