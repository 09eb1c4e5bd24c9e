// Cryptography of the next generation: random bytes.
#pragma once

#include <winternl.h>

using BCRYPT_ALG_HANDLE = void*;

#define BCRYPT_USE_SYSTEM_PREFERRED_RNG 0x00000002
#define BCRYPT_SUCCESS(status) ((status) >= 0)

extern "C" {
// Fills a buffer with random bytes of the system. Without an algorithm of the caller's the flag
// BCRYPT_USE_SYSTEM_PREFERRED_RNG must stand; nothing else is supported (STATUS_NOT_SUPPORTED).
// STATUS_UNSUCCESSFUL when the system has no random bytes to give.
WINAPI_EXPORT NTSTATUS WINAPI BCryptGenRandom(BCRYPT_ALG_HANDLE hAlgorithm, BYTE* pbBuffer,
                                              ULONG cbBuffer, ULONG dwFlags);
}
