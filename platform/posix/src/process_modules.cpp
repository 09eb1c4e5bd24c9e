#include <psapi.h>

#include <algorithm>
#include <string>

#include "last_error.h"
#include "process_object.h"
#include "text.h"

using namespace platform;

namespace {

// What EnumProcessModules tells of a process: its program. It is no address.
const HMODULE kProgramModule = reinterpret_cast<HMODULE>(LONG_PTR{4});

constexpr DWORD kModuleRights = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;

}  // namespace

extern "C" {

DWORD WINAPI GetProcessImageFileNameW(HANDLE hProcess, LPWSTR lpImageFileName, DWORD nSize) {
    const auto process = ProcessOf(hProcess, PROCESS_QUERY_LIMITED_INFORMATION);
    if (!process) return 0;
    const std::u16string path = WideOf(process->Folder().ProgramPath());
    if (path.empty()) return Fail<DWORD>(ERROR_ACCESS_DENIED);
    if (path.size() >= nSize) return Fail<DWORD>(ERROR_INSUFFICIENT_BUFFER);
    std::copy_n(path.c_str(), path.size() + 1, lpImageFileName);
    return static_cast<DWORD>(path.size());
}

BOOL WINAPI EnumProcessModules(HANDLE hProcess, HMODULE* lphModule, DWORD cb, LPDWORD lpcbNeeded) {
    if (lpcbNeeded == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const auto process = ProcessOf(hProcess, kModuleRights);
    if (!process) return FALSE;
    if (process->Folder().ProgramPath().empty()) return Fail(ERROR_ACCESS_DENIED);
    *lpcbNeeded = sizeof(HMODULE);
    if (cb >= sizeof(HMODULE)) *lphModule = kProgramModule;
    return TRUE;
}

DWORD WINAPI GetModuleFileNameExW(HANDLE hProcess, HMODULE hModule, LPWSTR lpFilename,
                                  DWORD nSize) {
    const auto process = ProcessOf(hProcess, kModuleRights);
    if (!process) return 0;
    if (lpFilename == nullptr || nSize == 0) return Fail<DWORD>(ERROR_INVALID_PARAMETER);
    const std::u16string path = WideOf(process->Folder().ProgramPath());
    if (path.empty() || (hModule != nullptr && hModule != kProgramModule)) {
        return Fail<DWORD>(ERROR_INVALID_HANDLE);
    }
    const std::size_t length = std::min<std::size_t>(path.size(), nSize - 1);
    *std::copy_n(path.begin(), length, lpFilename) = 0;
    if (length == path.size()) return static_cast<DWORD>(length);
    Fail(ERROR_INSUFFICIENT_BUFFER);
    return nSize;
}
}
