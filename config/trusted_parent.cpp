#include "config/trusted_parent.h"

#include <windows.h>
//
#include <psapi.h>

#include "app/services/user_context.h"
#include "common/handles.h"
#include "common/path.h"

namespace {

constexpr const WCHAR* kTrustedParents[] = {TEXT("scheduler.exe"), TEXT("msiexec.exe")};

using GetProcessImageFileNameFunction = DWORD(WINAPI*)(HANDLE process, LPWSTR name, DWORD capacity);

// The image file of a process in the system's own form of paths; empty when it cannot be told.
WString ImageFileName(HANDLE process) {
    const UniqueLibrary psapi(LoadLibraryW(TEXT("psapi.dll")));
    if (!psapi) return {};
    const auto address =
        reinterpret_cast<void*>(GetProcAddress(psapi.get(), "GetProcessImageFileNameW"));
    if (address == nullptr) return {};
    const auto getImageFileName = reinterpret_cast<GetProcessImageFileNameFunction>(address);
    WCHAR name[kPathCapacity] = {};
    return WString(name, getImageFileName(process, name, MAX_PATH));
}

// The file of a process's first module: the program itself.
WString FirstModuleFileName(HANDLE process) {
    HMODULE module = nullptr;
    DWORD size = 0;
    if (!EnumProcessModules(process, &module, sizeof(HMODULE), &size)) return {};
    WCHAR name[kPathCapacity] = {};
    return WString(name, GetModuleFileNameExW(process, module, name, MAX_PATH));
}

// A process that does not let its memory be read still tells its name.
UniqueHandle OpenForItsName(DWORD processId) {
    UniqueHandle process(
        OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ | SYNCHRONIZE, FALSE, processId));
    if (!process && GetLastError() == ERROR_ACCESS_DENIED) {
        process.reset(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    }
    return process;
}

WString ParentFileName() {
    const DWORD parent = GetParentProcessId();
    if (parent == 0) return {};
    const UniqueHandle process = OpenForItsName(parent);
    if (!process) return {};
    WString name = ImageFileName(process.get());
    if (name.empty()) name = FirstModuleFileName(process.get());
    return FileNameOfPath(name);
}

}  // namespace

bool IsParentTrusted() {
    const WString name = ParentFileName();
    for (const WCHAR* trusted : kTrustedParents) {
        if (EqualIgnoringCase(name, trusted)) return true;
    }
    return false;
}
