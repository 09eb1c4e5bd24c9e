#include "cryptd/crypto_log.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "client/include/utilsdll.h"
#include "common/client_folder.h"
#include "common/console_text.h"
#include "common/format.h"
#include "common/handles.h"
#include "common/path.h"
#include "common/security.h"

HANDLE gCryptdLogMute = nullptr;
HANDLE gCryptdMsgMute = nullptr;

namespace {

constexpr const WCHAR* kMutexName = TEXT("Global\\SN_{770C9A0D-583E-4A62-B76C-73AA4CFD2DDD}");
constexpr const WCHAR* kTraceSwitch = TEXT("Global\\SN_{7B49E838-48D2-41DC-8B16-016E5A860581}");

// The path of the program is read up to here, so that the logs' paths fit theirs.
constexpr DWORD kProgramPathCapacity = 228;
constexpr std::size_t kFormattedCapacity = 8'192;  // with the terminator
constexpr LONGLONG kMaxLog = 1'048'576;            // bytes

// --- Paths --------------------------------------------------------------------------------------

// Plain memory, so that a log can be written from the first constructor to the last destructor of
// the program.
using PathBuffer = std::array<WCHAR, kPathCapacity>;
PathBuffer logFolder;
PathBuffer logPath;
PathBuffer msgPath;

void Store(WStringView path, PathBuffer& buffer) {
    buffer.fill(0);
    path.copy(buffer.data(), buffer.size() - 1);
}

void FindLogs() {
    PathBuffer program = {};
    GetModuleFileNameW(nullptr, program.data(), kProgramPathCapacity);
    const WString folder =
        JoinPath(JoinPath(FolderOfPath(program.data()), TEXT("logs")), TEXT("fips"));
    PathBuffer absolute = {};
    const DWORD length = GetFullPathNameW(folder.c_str(), kPathCapacity, absolute.data(), nullptr);
    Store(length != 0 && length < kPathCapacity ? absolute.data() : folder, logFolder);
    Store(JoinPath(logFolder.data(), TEXT("CryptdLog.txt")), logPath);
    Store(JoinPath(logFolder.data(), TEXT("CryptdMsg.txt")), msgPath);
}

// Makes or verifies the folder of the logs, with the one above it.
bool PrepareFolder() {
    const WString folder = logFolder.data();
    return PrepareClientFolder(FolderOfPath(folder)) && PrepareClientFolder(folder);
}

// --- The mutex ----------------------------------------------------------------------------------

HANDLE MakeMutex(const WCHAR* variable) {
    EveryoneAccess everyone;
    HANDLE mutex = CreateMutexW(everyone.get(), FALSE, kMutexName);
    if (mutex == nullptr && GetLastError() == ERROR_ACCESS_DENIED) {
        // Another's mutex that does not grant everything is opened for waiting alone.
        mutex = OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, kMutexName);
    }
    if (mutex == nullptr) {
        WriteConsoleText(
            FormatWide(TEXT("Failed to create %s! (e=%u)\n"), variable, GetLastError()));
    }
    return mutex;
}

// Holds the mutex while it lives. Where it cannot be had, the work goes on without it.
class Lock {
  public:
    explicit Lock(HANDLE mutex) : mutex_(mutex) {
        if (mutex_ == nullptr) {
            WriteConsoleText(TEXT("CryptdMutexLock(): hMutex is NULL.\n"));
            return;
        }
        // Also for a mutex that a dying writer left to this one.
        if (WaitForSingleObject(mutex_, INFINITE) != WAIT_OBJECT_0) {
            WriteConsoleText(TEXT("CryptdMutexLock(): Can't lock.\n"));
        }
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() {
        if (mutex_ == nullptr) {
            WriteConsoleText(TEXT("CryptdMutexUnlock(): hMutex is NULL.\n"));
        } else {
            ReleaseMutex(mutex_);
        }
    }

  private:
    HANDLE mutex_;
};

// --- Lines --------------------------------------------------------------------------------------

std::string Prefix() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    std::array<char, 64> text = {};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03d [%5u,%5u] - ",
                  now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond,
                  now.wMilliseconds, static_cast<unsigned>(GetCurrentProcessId()),
                  static_cast<unsigned>(GetCurrentThreadId()));
    return text.data();
}

// The bytes that the file gets for a message.
std::string LineOf(std::string_view message) {
    const bool isRaw = message.front() == '~';
    std::string line = isRaw ? std::string() : Prefix();
    line.reserve(line.size() + message.size() + 2);
    for (const char c : message.substr(isRaw ? 1 : 0)) {
        if (c == '\n') line += '\r';
        line += c;
    }
    if (message.back() != '\n') line += "\r\n";
    return line;
}

// --- Files --------------------------------------------------------------------------------------

WString BackupOf(const WCHAR* path) {
    return path + WString(TEXT(".bak"));
}

UniqueHandle OpenLog(const WCHAR* path) {
    return OpenClientFile(path, FILE_APPEND_DATA, OPEN_ALWAYS, kEveryoneAppends);
}

bool IsFull(const UniqueHandle& log) {
    LARGE_INTEGER size = {};
    return GetFileSizeEx(log.get(), &size) && size.QuadPart > kMaxLog;
}

void Clear(const WCHAR* path) {
    const Lock lock(gCryptdLogMute);
    DeleteFileW(BackupOf(path).c_str());
    DeleteFileW(path);
}

// --- Messages -----------------------------------------------------------------------------------

std::string Format(const char* format, va_list arguments) {
    if (format == nullptr) return {};
    std::array<char, kFormattedCapacity> text = {};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(text.data(), text.size(), format, arguments);
#pragma GCC diagnostic pop
    return text.data();
}

std::string Format(const WCHAR* format, va_list arguments) {
    if (format == nullptr) return {};
    return WideToUtf8(FormatWideV(format, arguments).substr(0, kFormattedCapacity - 1));
}

std::string Narrow(const WCHAR* message) {
    return message == nullptr ? std::string() : WideToUtf8(message);
}

std::string Separator(int length) {
    const LONGLONG dashes = static_cast<LONGLONG>(Prefix().size()) + length;
    return "~" + std::string(static_cast<std::size_t>(std::max(dashes, LONGLONG{0})), '-');
}

}  // namespace

int CryptdLogInit() {
    FindLogs();
    if (gCryptdLogMute == nullptr) gCryptdLogMute = MakeMutex(TEXT("gCryptdLogMute"));
    if (gCryptdMsgMute == nullptr) gCryptdMsgMute = MakeMutex(TEXT("gCryptdMsgMute"));
    return 0;
}

int CryptdLogWrite(const WCHAR* path, HANDLE mutex, const char* message) {
    // 1. Is there anything to write?
    if (message == nullptr || *message == '\0' || cfg_is_fips_mode_enabled() == 0) return 0;
    if (path == nullptr) return -1;

    // 2. The file, this program's alone for now.
    const bool isFolderSafe = PrepareFolder();
    const Lock lock(mutex);
    UniqueHandle log = isFolderSafe ? OpenLog(path) : UniqueHandle();
    if (!log) return -1;

    // 3. A full one is replaced by a new one. Where it cannot be renamed, because another program
    // has it open or this account may not rename it, it grows on.
    if (IsFull(log)) {
        log.reset();
        MoveFileExW(path, BackupOf(path).c_str(), MOVEFILE_REPLACE_EXISTING);
        log = OpenLog(path);
        if (!log) return -2;
    }

    // 4. The line, in one write.
    const std::string line = LineOf(message);
    DWORD written = 0;
    WriteFile(log.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    return 0;
}

void CryptdLog(const char* message) {
    CryptdLogWrite(logPath.data(), gCryptdLogMute, message);
}

void CryptdMsg(const char* message) {
    CryptdLogWrite(msgPath.data(), gCryptdMsgMute, message);
    CryptdLog(message);
}

void CryptdLogW(const WCHAR* message) {
    CryptdLog(Narrow(message).c_str());
}

void CryptdMsgW(const WCHAR* message) {
    CryptdMsg(Narrow(message).c_str());
}

void CryptdLogPrintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    CryptdLog(Format(format, arguments).c_str());
    va_end(arguments);
}

void CryptdMsgPrintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    CryptdMsg(Format(format, arguments).c_str());
    va_end(arguments);
}

void CryptdLogPrintfW(const WCHAR* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    CryptdLog(Format(format, arguments).c_str());
    va_end(arguments);
}

void CryptdMsgPrintfW(const WCHAR* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    CryptdMsg(Format(format, arguments).c_str());
    va_end(arguments);
}

void CryptdLogSeparator(int length) {
    CryptdLog(Separator(length).c_str());
}

void CryptdMsgSeparator(int length) {
    CryptdMsg(Separator(length).c_str());
}

void CryptdLogClear() {
    Clear(logPath.data());
}

void CryptdMsgClear() {
    Clear(msgPath.data());
}

int CryptdLogCopy(const WCHAR* destination) {
    if (destination == nullptr || *destination == 0) return -1;
    return CopyFileW(logPath.data(), destination, FALSE) ? 0 : -2;
}

const WCHAR* CryptdGetLogPath() {
    return logPath.data();
}

const WCHAR* CryptdGetMsgPath() {
    return msgPath.data();
}

int CryptdIsTraceEnabled() {
    const UniqueHandle traceSwitch(OpenMutexW(MUTEX_ALL_ACCESS, FALSE, kTraceSwitch));
    return traceSwitch || GetLastError() == ERROR_ACCESS_DENIED ? 1 : 0;
}
