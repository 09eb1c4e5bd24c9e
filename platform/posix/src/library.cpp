#include <dlfcn.h>
#include <fcntl.h>
#include <libloaderapi.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>

#include "descriptor.h"
#include "last_error.h"
#include "paths.h"
#include "text.h"

using namespace platform;

namespace {

// Windows' own libraries, whose exports are those of this layer.
constexpr std::u16string_view kSystemLibraries[] = {
    u"KERNEL32", u"NTDLL", u"PSAPI", u"ADVAPI32", u"SHLWAPI", u"MSI", u"USER32",
};

// The loader's list of libraries is read while nobody changes it through these calls.
std::mutex loaderMutex;

// A module's handle is the loader's own record of it.
HMODULE HandleOf(const link_map* map) {
    return reinterpret_cast<HMODULE>(const_cast<link_map*>(map));
}

const link_map* ModuleAt(const void* address) {
    Dl_info info{};
    void* map = nullptr;
    return dladdr1(address, &info, &map, RTLD_DL_LINKMAP) != 0 ? static_cast<link_map*>(map)
                                                               : nullptr;
}

HMODULE OwnModule() {
    return HandleOf(ModuleAt(reinterpret_cast<void*>(&LoadLibraryW)));
}

const link_map* Program() {
    // Never the last reference.
    static void* const handle = dlopen(nullptr, RTLD_LAZY);
    return static_cast<const link_map*>(handle);
}

bool IsLoaded(HMODULE module) {
    for (const link_map* map = Program(); map != nullptr; map = map->l_next) {
        if (HandleOf(map) == module) return true;
    }
    return false;
}

// The file of a module: the program's record has no name.
std::string FileOf(const link_map* map) {
    std::error_code ignored;
    if (map->l_name[0] == '\0') return std::filesystem::read_symlink("/proc/self/exe", ignored);
    return std::filesystem::absolute(map->l_name, ignored).lexically_normal();
}

bool IsSystemLibrary(std::u16string_view name) {
    std::u16string upper = UpperCase(name);
    if (upper.ends_with(u".DLL")) upper.resize(upper.size() - 4);
    return std::ranges::find(kSystemLibraries, upper) != std::end(kSystemLibraries);
}

// The name of a library's file: the extension is added where there is none; a dot at the end says
// that there shall be none.
std::string LibraryFile(LPCWSTR name) {
    std::string file = NativePath(name);
    const std::size_t dot = file.find('.', file.rfind('/') + 1);
    if (dot == std::string::npos) return file + ".so";
    if (file.ends_with('.')) file.pop_back();
    return file;
}

bool IsLibraryFile(const std::string& path) {
    const UniqueDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, SELFMAG> magic{};
    return read(file.get(), magic.data(), magic.size()) == SELFMAG &&
           std::memcmp(magic.data(), ELFMAG, SELFMAG) == 0;
}

// Loads by a path. A library that needs another one that is missing counts as missing itself.
HMODULE LoadFile(const std::string& path) {
    if (access(path.c_str(), F_OK) != 0) return Fail<HMODULE>(ERROR_MOD_NOT_FOUND);
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle != nullptr) return static_cast<HMODULE>(handle);
    return Fail<HMODULE>(IsLibraryFile(path) ? ERROR_MOD_NOT_FOUND : ERROR_BAD_EXE_FORMAT);
}

// Loads by a name without a folder: beside the program, then where the system looks.
HMODULE FindAndLoad(const std::string& file) {
    const std::string beside = ParentOf(FileOf(Program())) + "/" + file;
    if (access(beside.c_str(), F_OK) == 0) return LoadFile(beside);
    void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    return handle != nullptr ? static_cast<HMODULE>(handle) : Fail<HMODULE>(ERROR_MOD_NOT_FOUND);
}

// A loaded module by its path or by the name of its file, without counting a use of it.
HMODULE FindLoaded(LPCWSTR name) {
    if (name == nullptr) return HandleOf(Program());
    if (IsSystemLibrary(name)) return OwnModule();
    const std::string file = LibraryFile(name);
    const std::string beside = ParentOf(FileOf(Program())) + "/" + file;
    void* found = file.find('/') == std::string::npos
                      ? dlopen(beside.c_str(), RTLD_LAZY | RTLD_NOLOAD)
                      : nullptr;
    if (found == nullptr) found = dlopen(file.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (found == nullptr) return Fail<HMODULE>(ERROR_MOD_NOT_FOUND);
    dlclose(found);
    return static_cast<HMODULE>(found);
}

}  // namespace

extern "C" HMODULE WINAPI LoadLibraryW(LPCWSTR lpLibFileName) {
    if (lpLibFileName == nullptr || *lpLibFileName == 0)
        return Fail<HMODULE>(ERROR_INVALID_PARAMETER);
    const std::lock_guard lock(loaderMutex);
    if (IsSystemLibrary(lpLibFileName)) {
        return LoadFile(FileOf(reinterpret_cast<const link_map*>(OwnModule())));
    }
    const std::string file = LibraryFile(lpLibFileName);
    if (file.find('/') == std::string::npos) return FindAndLoad(file);
    return LoadFile(std::filesystem::absolute(file).lexically_normal());
}

extern "C" HMODULE WINAPI LoadLibraryA(LPCSTR lpLibFileName) {
    if (lpLibFileName == nullptr) return Fail<HMODULE>(ERROR_INVALID_PARAMETER);
    return LoadLibraryW(WideOf(lpLibFileName).c_str());
}

extern "C" BOOL WINAPI FreeLibrary(HMODULE hLibModule) {
    const std::lock_guard lock(loaderMutex);
    if (!IsLoaded(hLibModule)) return Fail(ERROR_INVALID_HANDLE);
    return dlclose(hLibModule) == 0 ? TRUE : Fail(ERROR_INVALID_HANDLE);
}

extern "C" FARPROC WINAPI GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
    const std::lock_guard lock(loaderMutex);
    if (reinterpret_cast<ULONG_PTR>(lpProcName) <= 0xFFFF)
        return Fail<FARPROC>(ERROR_NOT_SUPPORTED);
    if (hModule == nullptr) hModule = HandleOf(Program());
    if (!IsLoaded(hModule)) return Fail<FARPROC>(ERROR_MOD_NOT_FOUND);
    // Only a module that was opened once can be searched, and not all were by these calls.
    const char* const file = reinterpret_cast<const link_map*>(hModule)->l_name;
    void* const use = dlopen(file[0] == '\0' ? nullptr : file, RTLD_NOW | RTLD_NOLOAD);
    if (use == nullptr) return Fail<FARPROC>(ERROR_MOD_NOT_FOUND);
    void* const address = dlsym(use, lpProcName);
    dlclose(use);
    // The loader also finds what the libraries export that this one needs; those are not its own.
    if (address == nullptr || HandleOf(ModuleAt(address)) != hModule) {
        return Fail<FARPROC>(ERROR_PROC_NOT_FOUND);
    }
    return reinterpret_cast<FARPROC>(address);
}

extern "C" HMODULE WINAPI GetModuleHandleW(LPCWSTR lpModuleName) {
    const std::lock_guard lock(loaderMutex);
    return FindLoaded(lpModuleName);
}

extern "C" BOOL WINAPI GetModuleHandleExW(DWORD dwFlags, LPCWSTR lpModuleName, HMODULE* phModule) {
    constexpr DWORD kFlags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |  //
                             GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    *phModule = nullptr;
    if (dwFlags != kFlags) return Fail(ERROR_NOT_SUPPORTED);
    const std::lock_guard lock(loaderMutex);
    *phModule = HandleOf(ModuleAt(lpModuleName));
    return *phModule != nullptr || Fail(ERROR_MOD_NOT_FOUND);
}

extern "C" DWORD WINAPI GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize) {
    const std::lock_guard lock(loaderMutex);
    if (hModule == nullptr) hModule = HandleOf(Program());
    if (!IsLoaded(hModule)) {
        return Fail<DWORD>(ERROR_MOD_NOT_FOUND);
    }
    if (nSize == 0) return static_cast<DWORD>(Fail(ERROR_INSUFFICIENT_BUFFER));
    const std::u16string path = WideOf(FileOf(reinterpret_cast<const link_map*>(hModule)));
    const std::size_t length = std::min<std::size_t>(path.size(), nSize - 1);
    *std::copy_n(path.begin(), length, lpFilename) = 0;
    SetLastError(length < path.size() ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS);
    return length < path.size() ? nSize : static_cast<DWORD>(length);
}
