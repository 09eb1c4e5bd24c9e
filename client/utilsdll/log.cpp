// The client's log: "<common application data>\Sentrel\logs\<component>.log", UTF-8, one line for
// each call:
//
//   2024-05-31 09:07:12.045 [4711,4712] ERROR Cannot open file settings.conf
//
// with the local time, the ids of process and thread, and the level. A line goes out in one write
// at the file's end, so the lines of several processes never mix. Characters that could break a
// line or hide part of it are shown as \x and their code. Administrators make the file; every
// account may append to it.
#include <cstdarg>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "client/utilsdll/data_folder.h"
#include "common/client_folder.h"
#include "common/format.h"
#include "common/handles.h"
#include "common/path.h"
#include "common/security.h"

struct SN_LOG {
    UniqueHandle file;
};

namespace {

bool IsFileName(WStringView component) {
    return !component.empty() && component.front() != '.' &&
           component.find_first_of(TEXT("\\/:*?\"<>|")) == WStringView::npos;
}

WString LineStart(const WCHAR* level) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return FormatWide(TEXT("%04u-%02u-%02u %02u:%02u:%02u.%03u [%lu,%lu] %s "), unsigned{now.wYear},
                      unsigned{now.wMonth}, unsigned{now.wDay}, unsigned{now.wHour},
                      unsigned{now.wMinute}, unsigned{now.wSecond}, unsigned{now.wMilliseconds},
                      GetCurrentProcessId(), GetCurrentThreadId(), level);
}

void WriteLine(SN_LOG_HANDLE log, const WCHAR* level, const WCHAR* format, va_list arguments) {
    if (log == nullptr || format == nullptr) return;
    const DWORD lastError = GetLastError();
    Guarded(false, [&] {
        const std::string line =
            WideToUtf8(LineStart(level) + OneLine(FormatWideV(format, arguments))) + "\r\n";
        DWORD written = 0;
        return WriteFile(log->file.get(), line.data(), static_cast<DWORD>(line.size()), &written,
                         nullptr) != FALSE;
    });
    SetLastError(lastError);  // callers log first and look at the error afterwards
}

}  // namespace

extern "C" SN_LOG_HANDLE log_initialize(const WCHAR* component) {
    return Guarded<SN_LOG_HANDLE>(nullptr, [&]() -> SN_LOG_HANDLE {
        if (component == nullptr || !IsFileName(component)) return nullptr;
        const WString folder = utilsdll::DataSubfolder(TEXT("logs"));
        if (folder.empty()) return nullptr;
        const WString path = JoinPath(folder, component + WString(TEXT(".log")));
        UniqueHandle file = OpenClientFile(path, FILE_APPEND_DATA, OPEN_ALWAYS, kEveryoneAppends);
        return file ? new SN_LOG{std::move(file)} : nullptr;
    });
}

extern "C" void log_deinitialize(SN_LOG_HANDLE log) {
    delete log;
}

extern "C" void log_error_fmt(SN_LOG_HANDLE log, const WCHAR* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    WriteLine(log, TEXT("ERROR"), format, arguments);
    va_end(arguments);
}

extern "C" void log_debug_fmt(SN_LOG_HANDLE log, const WCHAR* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    WriteLine(log, TEXT("DEBUG"), format, arguments);
    va_end(arguments);
}
