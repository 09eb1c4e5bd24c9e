#include <unistd.h>
#include <wtsapi32.h>

#include <cstdlib>
#include <cstring>

#include "last_error.h"
#include "process_info.h"
#include "sessions.h"
#include "text.h"
#include "token.h"

using namespace platform;

namespace {

// The records and behind them their names, in one piece of memory; null when there is none left.
WTS_PROCESS_INFOW* NewProcessList(const std::vector<ProcessInfo>& processes) {
    std::u16string names;
    std::vector<std::size_t> starts;
    starts.reserve(processes.size());
    for (const ProcessInfo& process : processes) {
        starts.push_back(names.size());
        names.append(WideOf(process.name)).push_back(u'\0');
    }
    const std::size_t recordBytes = processes.size() * sizeof(WTS_PROCESS_INFOW);
    void* const memory = std::malloc(recordBytes + names.size() * sizeof(WCHAR));
    if (memory == nullptr) return nullptr;
    auto* const records = static_cast<WTS_PROCESS_INFOW*>(memory);
    auto* const text = reinterpret_cast<WCHAR*>(static_cast<BYTE*>(memory) + recordBytes);
    std::memcpy(text, names.data(), names.size() * sizeof(WCHAR));

    const SessionTable sessions;
    for (std::size_t i = 0; i < processes.size(); ++i) {
        records[i] = {sessions.SessionOf(processes[i]), static_cast<DWORD>(processes[i].id),
                      text + starts[i], nullptr};
    }
    return records;
}

}  // namespace

extern "C" {

BOOL WINAPI WTSEnumerateProcessesW(HANDLE hServer, DWORD Reserved, DWORD Version,
                                   PWTS_PROCESS_INFOW* ppProcessInfo, DWORD* pCount) {
    if (hServer != WTS_CURRENT_SERVER_HANDLE) return Fail(ERROR_NOT_SUPPORTED);
    if (Reserved != 0 || Version != 1 || ppProcessInfo == nullptr || pCount == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const auto processes = ListProcesses();
    auto* const list = NewProcessList(processes);
    if (list == nullptr) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    *ppProcessInfo = list;
    *pCount = static_cast<DWORD>(processes.size());
    return TRUE;
}

void WINAPI WTSFreeMemory(PVOID pMemory) {
    std::free(pMemory);
}

BOOL WINAPI WTSQueryUserToken(ULONG SessionId, PHANDLE phToken) {
    if (phToken == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const SessionTable sessions;
    const auto user = sessions.UserOf(SessionId);
    const Identity self = ProcessIdentity();
    const bool isOwn = user.has_value() && *user == self.user;
    if (!isOwn && !MayActAsAnyone()) return Fail(ERROR_PRIVILEGE_NOT_HELD);
    if (!sessions.Exists(SessionId)) return Fail(ERROR_CTX_WINSTATION_NOT_FOUND);
    if (!user) return Fail(ERROR_NO_TOKEN);
    *phToken = OpenHandle(
        std::make_shared<Token>(isOwn ? self : IdentityOfUser(*user), 0, TOKEN_ALL_ACCESS));
    return TRUE;
}
}
