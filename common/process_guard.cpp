#include "common/process_guard.h"

#include <windows.h>

#include "common/security.h"

namespace {

// Found by their names: not every SDK declares them, and not every system has them.
using WerSetFlagsFunction = HRESULT(WINAPI*)(DWORD flags);
using SetPolicyFunction = BOOL(WINAPI*)(int policy, void* setting, std::size_t size);

void* KernelFunction(const char* name) {
    const HMODULE kernel = GetModuleHandleW(TEXT("kernel32"));
    if (kernel == nullptr) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(kernel, name));
}

}  // namespace

void KeepMemoryOutOfCrashReports() {
    constexpr DWORD kNoHeap = 1;
    void* const address = KernelFunction("WerSetFlags");
    if (address != nullptr) reinterpret_cast<WerSetFlagsFunction>(address)(kNoHeap);
}

void RefuseLinksOfOrdinaryAccounts() {
    constexpr int kRedirectionTrustPolicy = 16;
    DWORD enforced = 1;
    if (!IsMemberOf(WinBuiltinAdministratorsSid)) return;
    void* const address = KernelFunction("SetProcessMitigationPolicy");
    if (address == nullptr) return;
    reinterpret_cast<SetPolicyFunction>(address)(kRedirectionTrustPolicy, &enforced,
                                                 sizeof enforced);
}
