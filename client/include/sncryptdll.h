// Contract of the client's crypto library (SNCryptDLL). No function throws.
#pragma once

#include <client_export.h>

#ifdef SNCRYPTDLL_EXPORTS
#define SNCRYPTDLL_API CLIENT_EXPORT
#else
#define SNCRYPTDLL_API
#endif

extern "C" {

// Fills a buffer of `size` bytes from the library's own generator, which is the system's and none
// of OpenSSL's. 0, or a negative number on failure.
SNCRYPTDLL_API int SncGetRandomBytes(void* buffer, int size);

// Nonzero when the library works in FIPS mode. It has a switch of its own for that, which
// cfg_set_fips_mode sets together with the client's.
SNCRYPTDLL_API int SncFipsIsFipsModeEnabled();
}
