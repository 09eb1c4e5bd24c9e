// Memory that one side allocates and the other side frees - the process's ordinary heap - and the
// wiping of memory.
#include <winbase.h>

#include <cstdlib>
#include <cstring>

#include "last_error.h"

extern "C" {

HLOCAL WINAPI LocalAlloc(UINT uFlags, SIZE_T uBytes) {
    if ((uFlags & ~static_cast<UINT>(LMEM_ZEROINIT)) != 0) {
        platform::Fail(ERROR_NOT_SUPPORTED);  // movable memory
        return nullptr;
    }
    const SIZE_T size = uBytes == 0 ? 1 : uBytes;
    void* const memory = (uFlags & LMEM_ZEROINIT) != 0 ? std::calloc(1, size) : std::malloc(size);
    if (memory == nullptr) platform::Fail(ERROR_NOT_ENOUGH_MEMORY);
    return memory;
}

HLOCAL WINAPI LocalFree(HLOCAL hMem) {
    std::free(hMem);
    return nullptr;
}

PVOID WINAPI SecureZeroMemory(PVOID ptr, SIZE_T cnt) {
    explicit_bzero(ptr, cnt);
    return ptr;
}
}
