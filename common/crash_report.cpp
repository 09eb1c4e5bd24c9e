#include "common/crash_report.h"

#include <windows.h>

namespace {

// Found by its name: not every SDK can compile the header that declares it.
using WerSetFlagsFunction = HRESULT(WINAPI*)(DWORD flags);

}  // namespace

void KeepMemoryOutOfCrashReports() {
    constexpr DWORD kNoHeap = 1;
    const HMODULE kernel = GetModuleHandleW(TEXT("kernel32"));
    if (kernel == nullptr) return;
    const auto address = reinterpret_cast<void*>(GetProcAddress(kernel, "WerSetFlags"));
    if (address != nullptr) reinterpret_cast<WerSetFlagsFunction>(address)(kNoHeap);
}
