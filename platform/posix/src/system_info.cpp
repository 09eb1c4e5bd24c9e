#include <sys/utsname.h>
#include <sysinfoapi.h>
#include <unistd.h>
#include <winbase.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "last_error.h"
#include "text.h"

namespace {

struct Architecture {
    std::string_view machine;
    WORD code;
};
constexpr Architecture kArchitectures[] = {
    {"x86_64", PROCESSOR_ARCHITECTURE_AMD64},
    {"aarch64", PROCESSOR_ARCHITECTURE_ARM64},
    {"i686", PROCESSOR_ARCHITECTURE_INTEL},
    {"armv7l", PROCESSOR_ARCHITECTURE_ARM},
};

WORD ArchitectureOfMachine() {
    utsname names{};
    uname(&names);
    for (const Architecture& architecture : kArchitectures) {
        if (architecture.machine == names.machine) return architecture.code;
    }
    return PROCESSOR_ARCHITECTURE_UNKNOWN;
}

std::u16string HostName() {
    utsname names{};
    uname(&names);
    const std::u16string name = platform::WideOf(names.nodename);
    return name.substr(0, name.find(u'.'));
}

BOOL Give(const std::u16string& name, LPWSTR buffer, DWORD& size, DWORD errorOfSmall) {
    const auto length = static_cast<DWORD>(name.size());
    const bool fits = buffer != nullptr && length < size;
    size = fits ? length : length + 1;
    if (!fits) return platform::Fail(errorOfSmall);
    *std::ranges::copy(name, buffer).out = 0;
    return TRUE;
}

}  // namespace

extern "C" BOOL WINAPI GetComputerNameW(LPWSTR lpBuffer, LPDWORD nSize) {
    const std::u16string name = HostName().substr(0, MAX_COMPUTERNAME_LENGTH);
    return Give(platform::UpperCase(name), lpBuffer, *nSize, ERROR_BUFFER_OVERFLOW);
}

extern "C" BOOL WINAPI GetComputerNameExW(COMPUTER_NAME_FORMAT NameType, LPWSTR lpBuffer,
                                          LPDWORD nSize) {
    if (NameType != ComputerNameDnsHostname) return platform::Fail(ERROR_NOT_SUPPORTED);
    return Give(HostName(), lpBuffer, *nSize, ERROR_MORE_DATA);
}

extern "C" void WINAPI GetNativeSystemInfo(LPSYSTEM_INFO lpSystemInfo) {
    const auto pageSize = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
    *lpSystemInfo = {};
    lpSystemInfo->wProcessorArchitecture = ArchitectureOfMachine();
    lpSystemInfo->dwPageSize = pageSize;
    lpSystemInfo->dwNumberOfProcessors = static_cast<DWORD>(sysconf(_SC_NPROCESSORS_ONLN));
    lpSystemInfo->dwAllocationGranularity = pageSize;
}

extern "C" DWORD WINAPI GetVersion() {
    constexpr DWORD kMajor = 6;
    constexpr DWORD kMinor = 2;
    constexpr DWORD kBuild = 9200;
    return kMajor | kMinor << 8 | kBuild << 16;
}
