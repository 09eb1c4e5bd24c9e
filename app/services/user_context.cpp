#include "app/services/user_context.h"

#include <tlhelp32.h>
#include <utilsdll.h>
#include <wtsapi32.h>

#include "common/handles.h"
#include "common/text.h"

namespace {

constexpr const WCHAR* kExplorer = TEXT("explorer.exe");

// What a process's token is opened for: to act with it and to hand it on.
constexpr DWORD kTokenAccess = TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE |
                               TOKEN_QUERY | TOKEN_ADJUST_PRIVILEGES;

// The processes of the machine, as the terminal services list them.
class ProcessList {
  public:
    ProcessList() {
        if (!WTSEnumerateProcessesW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &processes_, &count_)) {
            processes_ = nullptr;
            count_ = 0;
        }
    }
    ProcessList(const ProcessList&) = delete;
    ProcessList& operator=(const ProcessList&) = delete;
    ~ProcessList() {
        if (processes_ != nullptr) WTSFreeMemory(processes_);
    }

    const WTS_PROCESS_INFOW* begin() const { return processes_; }
    const WTS_PROCESS_INFOW* end() const { return processes_ + count_; }

  private:
    WTS_PROCESS_INFOW* processes_ = nullptr;
    DWORD count_ = 0;
};

// The first explorer process of the session; 0 when there is none.
DWORD FindExplorer(DWORD sessionId) {
    for (const WTS_PROCESS_INFOW& process : ProcessList()) {
        if (process.SessionId == sessionId && process.pProcessName != nullptr &&
            EqualIgnoringCase(process.pProcessName, kExplorer)) {
            return process.ProcessId;
        }
    }
    return 0;
}

UniqueHandle TokenOfExplorer(DWORD sessionId) {
    const DWORD explorer = FindExplorer(sessionId);
    if (explorer == 0) return {};
    const UniqueHandle process(OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, explorer));
    UniqueHandle token;
    if (!process || !OpenProcessToken(process.get(), kTokenAccess, token.put())) return {};
    return token;
}

}  // namespace

BOOL ImpersonateSessionUser(DWORD sessionId) {
    UniqueHandle token;
    if (GetTokenOfSession(sessionId, token.put(), 0) != 0) token = TokenOfExplorer(sessionId);
    return token ? ImpersonateLoggedOnUser(token.get()) : FALSE;
}

DWORD GetParentProcessId() {
    const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return 0;
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof entry;
    const DWORD self = GetCurrentProcessId();
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more;
         more = Process32NextW(snapshot.get(), &entry)) {
        if (entry.th32ProcessID == self) return entry.th32ParentProcessID;
    }
    return 0;
}
