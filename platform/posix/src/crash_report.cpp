#include <sys/resource.h>
#include <werapi.h>

#include <cerrno>

#include "last_error.h"

using namespace platform;

extern "C" HRESULT WINAPI WerSetFlags(DWORD dwFlags) {
    constexpr DWORD kNoHeap = 1;
    const auto failure = [](DWORD error) { return static_cast<HRESULT>(0x80070000U | error); };
    if (dwFlags != kNoHeap) return failure(ERROR_NOT_SUPPORTED);
    // One byte is too little for a core, and tells the kernel not to start a collector either.
    const rlimit none{1, 1};
    return setrlimit(RLIMIT_CORE, &none) == 0 ? 0 : failure(ErrorOfErrno(errno));
}
