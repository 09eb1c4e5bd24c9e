#include <sys/utsname.h>
#include <sysinfoapi.h>
#include <unistd.h>

#include <string_view>

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

}  // namespace

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
