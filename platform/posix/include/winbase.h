#pragma once

#include <winnt.h>

#define LMEM_FIXED 0x0000
#define LMEM_ZEROINIT 0x0040
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)

extern "C" {

// Memory freed with LocalFree, zeroed with LMEM_ZEROINIT; null with ERROR_NOT_ENOUGH_MEMORY. It
// never moves.
WINAPI_EXPORT HLOCAL WINAPI LocalAlloc(UINT uFlags, SIZE_T uBytes);
// Returns null. A null pointer is passed over.
WINAPI_EXPORT HLOCAL WINAPI LocalFree(HLOCAL hMem);
}
