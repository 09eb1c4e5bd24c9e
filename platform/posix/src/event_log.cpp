// Records of events, which this system's log daemon takes.
#include <syslog.h>
#include <unistd.h>
#include <winbase.h>

#include <mutex>
#include <optional>
#include <string>

#include "handles.h"
#include "last_error.h"
#include "text.h"

namespace {

struct EventSource : platform::KernelObject {
    explicit EventSource(LPCWSTR sourceName) : name(platform::BytesOf(sourceName)) {}
    const std::string name;
};

std::optional<int> PriorityOf(WORD type) {
    switch (type) {
        case EVENTLOG_SUCCESS:
        case EVENTLOG_INFORMATION_TYPE:
            return LOG_INFO;
        case EVENTLOG_WARNING_TYPE:
            return LOG_WARNING;
        case EVENTLOG_ERROR_TYPE:
            return LOG_ERR;
        default:
            return std::nullopt;
    }
}

// The C library's call does not tell whether anybody listens.
bool HasLog() {
    return access("/dev/log", W_OK) == 0 || platform::Fail(RPC_S_SERVER_UNAVAILABLE);
}

std::string Joined(const LPCWSTR* strings, WORD count) {
    std::string text;
    for (WORD i = 0; i < count; ++i) {
        if (i > 0) text += ' ';
        text += platform::BytesOf(strings[i]);
    }
    return text;
}

void Write(const std::string& source, int priority, const std::string& text) {
    static std::mutex
        mutex;  // the C library has one source at a time, whose name it only points to
    const std::lock_guard lock(mutex);
    openlog(source.c_str(), LOG_PID, LOG_USER);
    syslog(priority, "%s", text.c_str());
    closelog();
}

}  // namespace

extern "C" HANDLE WINAPI RegisterEventSourceW(LPCWSTR lpUNCServerName, LPCWSTR lpSourceName) {
    if (lpUNCServerName != nullptr || lpSourceName == nullptr) {
        platform::Fail(lpUNCServerName != nullptr ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return HasLog() ? platform::OpenHandle(std::make_shared<EventSource>(lpSourceName)) : nullptr;
}

extern "C" BOOL WINAPI ReportEventW(HANDLE hEventLog, WORD wType, WORD /*wCategory*/,
                                    DWORD /*dwEventID*/, PSID lpUserSid, WORD wNumStrings,
                                    DWORD dwDataSize, LPCWSTR* lpStrings, LPVOID /*lpRawData*/) {
    const auto source = platform::ObjectOf<EventSource>(hEventLog);
    if (!source) return FALSE;
    const std::optional<int> priority = PriorityOf(wType);
    if (!priority || lpUserSid != nullptr || dwDataSize != 0) {
        return platform::Fail(ERROR_NOT_SUPPORTED);
    }
    if (!HasLog()) return FALSE;
    Write(source->name, *priority, Joined(lpStrings, wNumStrings));
    return TRUE;
}

extern "C" BOOL WINAPI DeregisterEventSource(HANDLE hEventLog) {
    return platform::ObjectOf<EventSource>(hEventLog) ? CloseHandle(hEventLog) : FALSE;
}
