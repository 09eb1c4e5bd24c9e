// Memory that one side allocates and the other side frees - the process's ordinary heap -, the
// wiping of memory, and its place outside the swap.
#include <memoryapi.h>
#include <sys/mman.h>
#include <winbase.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "last_error.h"

using namespace platform;

extern "C" {

HLOCAL WINAPI LocalAlloc(UINT uFlags, SIZE_T uBytes) {
    if ((uFlags & ~static_cast<UINT>(LMEM_ZEROINIT)) != 0) {
        Fail(ERROR_NOT_SUPPORTED);  // movable memory
        return nullptr;
    }
    const SIZE_T size = uBytes == 0 ? 1 : uBytes;
    void* const memory = (uFlags & LMEM_ZEROINIT) != 0 ? std::calloc(1, size) : std::malloc(size);
    if (memory == nullptr) Fail(ERROR_NOT_ENOUGH_MEMORY);
    return memory;
}

HLOCAL WINAPI LocalFree(HLOCAL hMem) {
    std::free(hMem);
    return nullptr;
}

BOOL WINAPI VirtualLock(LPVOID lpAddress, SIZE_T dwSize) {
    return mlock(lpAddress, dwSize) == 0 ? TRUE : Fail(ERROR_WORKING_SET_QUOTA);
}

BOOL WINAPI VirtualUnlock(LPVOID lpAddress, SIZE_T dwSize) {
    return munlock(lpAddress, dwSize) == 0 ? TRUE : FailWithErrno(errno);
}

PVOID WINAPI SecureZeroMemory(PVOID ptr, SIZE_T cnt) {
    explicit_bzero(ptr, cnt);
    return ptr;
}
}
