#include <psapi.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "last_error.h"
#include "process_object.h"
#include "text.h"

namespace platform {
namespace {

struct Module {
    HMODULE base;
    std::string path;
};

// One line of a process's "maps" file: "start-end rights offset device file path".
struct Mapping {
    ULONG_PTR start = 0;
    bool isExecutable = false;
    std::string path;
};

Mapping ReadMapping(const std::string& line) {
    Mapping mapping;
    std::istringstream fields(line);
    std::string range, rights, offset, device, file;
    fields >> range >> rights >> offset >> device >> file >> std::ws;
    std::getline(fields, mapping.path);
    mapping.start = std::stoull(range, nullptr, 16);
    mapping.isExecutable = rights.size() > 2 && rights[2] == 'x';
    return mapping;
}

// Every file of which a process has code mapped, at the lowest address where it lies; the program
// first.
std::vector<Module> ListModules(const ProcessFolder& process) {
    std::vector<Module> modules;
    std::set<std::string> withCode;
    std::istringstream maps(process.Read("maps"));
    for (std::string line; std::getline(maps, line);) {
        const Mapping mapping = ReadMapping(line);
        if (!mapping.path.starts_with('/')) continue;
        if (mapping.isExecutable) withCode.insert(mapping.path);
        const auto isSame = [&](const Module& module) { return module.path == mapping.path; };
        if (std::none_of(modules.begin(), modules.end(), isSame)) {
            modules.push_back({reinterpret_cast<HMODULE>(mapping.start), mapping.path});
        }
    }
    std::erase_if(modules, [&](const Module& module) { return !withCode.contains(module.path); });
    const std::string program = process.ProgramPath();
    std::stable_partition(modules.begin(), modules.end(), [&](const Module& module) {
        return module.path == program || module.path == program + " (deleted)";
    });
    return modules;
}

DWORD NoText(DWORD error) {
    Fail(error);
    return 0;
}

std::shared_ptr<Process> ReadableProcess(HANDLE handle) {
    auto process = ProcessOf(handle, PROCESS_QUERY_INFORMATION);
    if (process && !process->Allows(PROCESS_VM_READ)) {
        Fail(ERROR_ACCESS_DENIED);
        process.reset();
    }
    return process;
}

}  // namespace
}  // namespace platform

using platform::Fail;

extern "C" {

DWORD WINAPI GetProcessImageFileNameW(HANDLE hProcess, LPWSTR lpImageFileName, DWORD nSize) {
    const auto process = platform::ProcessOf(
        hProcess, PROCESS_QUERY_INFORMATION | PROCESS_QUERY_LIMITED_INFORMATION);
    if (!process) return 0;
    const std::u16string path = platform::WideOf(process->Folder().ProgramPath());
    if (path.empty()) return platform::NoText(ERROR_ACCESS_DENIED);
    if (path.size() >= nSize) return platform::NoText(ERROR_INSUFFICIENT_BUFFER);
    std::copy_n(path.c_str(), path.size() + 1, lpImageFileName);
    return static_cast<DWORD>(path.size());
}

BOOL WINAPI EnumProcessModules(HANDLE hProcess, HMODULE* lphModule, DWORD cb, LPDWORD lpcbNeeded) {
    if (lpcbNeeded == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    const auto process = platform::ReadableProcess(hProcess);
    if (!process) return FALSE;
    const auto modules = platform::ListModules(process->Folder());
    if (modules.empty()) return Fail(ERROR_ACCESS_DENIED);
    *lpcbNeeded = static_cast<DWORD>(modules.size() * sizeof(HMODULE));
    for (std::size_t i = 0; i < std::min(modules.size(), cb / sizeof(HMODULE)); ++i) {
        lphModule[i] = modules[i].base;
    }
    return TRUE;
}

DWORD WINAPI GetModuleFileNameExW(HANDLE hProcess, HMODULE hModule, LPWSTR lpFilename,
                                  DWORD nSize) {
    const auto process = platform::ReadableProcess(hProcess);
    if (!process) return 0;
    if (lpFilename == nullptr || nSize == 0) return platform::NoText(ERROR_INVALID_PARAMETER);
    const auto modules = platform::ListModules(process->Folder());
    const auto found =
        std::find_if(modules.begin(), modules.end(), [&](const platform::Module& module) {
            return hModule == nullptr || module.base == hModule;
        });
    if (found == modules.end()) return platform::NoText(ERROR_INVALID_HANDLE);
    const std::u16string path = platform::WideOf(found->path);
    const std::size_t length = std::min<std::size_t>(path.size(), nSize - 1);
    std::copy_n(path.data(), length, lpFilename);
    lpFilename[length] = 0;
    if (length == path.size()) return static_cast<DWORD>(length);
    Fail(ERROR_INSUFFICIENT_BUFFER);
    return nSize;
}
}
