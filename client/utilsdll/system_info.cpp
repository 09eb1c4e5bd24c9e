#include "client/include/utilsdll.h"

extern "C" bool is64Bit() {
    SYSTEM_INFO info = {};
    GetNativeSystemInfo(&info);  // the system's own, also for a 32-bit program
    return info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ||
           info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_ARM64;
}

extern "C" bool os_is_windows_Vista() {
    constexpr DWORD kVistaMajorVersion = 6;
    return LOBYTE(LOWORD(GetVersion())) >= kVistaMajorVersion;
}
