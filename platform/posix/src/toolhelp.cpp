#include <tlhelp32.h>

#include <algorithm>
#include <mutex>
#include <utility>

#include "handles.h"
#include "last_error.h"
#include "process_info.h"
#include "text.h"

using namespace platform;

namespace {

class ProcessSnapshot final : public KernelObject {
  public:
    BOOL Next(bool fromStart, PROCESSENTRY32W* entry) {
        if (entry == nullptr) return Fail(ERROR_INVALID_PARAMETER);
        if (entry->dwSize < sizeof *entry) return Fail(ERROR_BAD_LENGTH);
        const std::lock_guard lock(mutex_);
        if (fromStart) next_ = 0;
        if (next_ == processes_.size()) return Fail(ERROR_NO_MORE_FILES);
        const ProcessInfo& process = processes_[next_++];
        PROCESSENTRY32W filled{};
        filled.dwSize = entry->dwSize;
        filled.th32ProcessID = static_cast<DWORD>(process.id);
        filled.th32ParentProcessID = static_cast<DWORD>(process.parent);
        const std::u16string name = WideOf(process.name).substr(0, MAX_PATH - 1);
        std::copy(name.begin(), name.end(), filled.szExeFile);
        *entry = filled;
        return TRUE;
    }

  private:
    const std::vector<ProcessInfo> processes_ = ListProcesses();
    std::mutex mutex_;
    std::size_t next_ = 0;
};

BOOL NextEntry(HANDLE snapshot, bool fromStart, PROCESSENTRY32W* entry) {
    const auto object = ObjectOf<ProcessSnapshot>(snapshot);
    return object ? object->Next(fromStart, entry) : FALSE;
}

}  // namespace

extern "C" {

HANDLE WINAPI CreateToolhelp32Snapshot(DWORD dwFlags, DWORD /*th32ProcessID*/) {
    if (dwFlags != TH32CS_SNAPPROCESS) return FailToOpen(ERROR_NOT_SUPPORTED);
    return OpenHandle(std::make_shared<ProcessSnapshot>());
}

BOOL WINAPI Process32FirstW(HANDLE hSnapshot, LPPROCESSENTRY32W lppe) {
    return NextEntry(hSnapshot, true, lppe);
}

BOOL WINAPI Process32NextW(HANDLE hSnapshot, LPPROCESSENTRY32W lppe) {
    return NextEntry(hSnapshot, false, lppe);
}
}
