// Data protection: data that only this machine, or only one account of it, can read again; and
// secrets in memory.
#pragma once

#include <wincrypt.h>

#define CRYPTPROTECT_UI_FORBIDDEN 0x1
#define CRYPTPROTECT_LOCAL_MACHINE 0x4

#define CRYPTPROTECTMEMORY_BLOCK_SIZE 16
#define CRYPTPROTECTMEMORY_SAME_PROCESS 0x0
#define CRYPTPROTECTMEMORY_CROSS_PROCESS 0x1
#define CRYPTPROTECTMEMORY_SAME_LOGON 0x2

// Of no use here: the calls below never ask a person, and refuse a prompt.
struct CRYPTPROTECT_PROMPTSTRUCT;

extern "C" {

// Protects the bytes of *pDataIn for the account that the calling thread acts as (the impersonated
// one while it impersonates) or, with CRYPTPROTECT_LOCAL_MACHINE, for every account of this
// machine. The entropy, when given, must be given again to read them. *pDataOut becomes a blob,
// always longer than the plain data, that the caller frees with LocalFree. A prompt or any other
// flag than the two above is refused with ERROR_NOT_SUPPORTED. The description is not kept; the
// data has at most 2 GiB less 50 bytes.
WINAPI_EXPORT BOOL WINAPI CryptProtectData(DATA_BLOB* pDataIn, LPCWSTR szDataDescr,
                                           DATA_BLOB* pOptionalEntropy, PVOID pvReserved,
                                           CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct, DWORD dwFlags,
                                           DATA_BLOB* pDataOut);

// Reads what CryptProtectData made; the blob itself says for whom it was made. *pDataOut is
// freed with LocalFree. Asking for a description is refused with ERROR_NOT_SUPPORTED. Fails with
// ERROR_INVALID_DATA, leaving the outputs as they were, for a blob of another account or machine,
// for another entropy, and for a blob that was changed or cut anywhere.
WINAPI_EXPORT BOOL WINAPI CryptUnprotectData(DATA_BLOB* pDataIn, LPWSTR* ppszDataDescr,
                                             DATA_BLOB* pOptionalEntropy, PVOID pvReserved,
                                             CRYPTPROTECT_PROMPTSTRUCT* pPromptStruct,
                                             DWORD dwFlags, DATA_BLOB* pDataOut);

// Encrypts and decrypts memory in place, for this process alone (CRYPTPROTECTMEMORY_SAME_PROCESS;
// other scopes: ERROR_NOT_SUPPORTED). The length is a multiple of CRYPTPROTECTMEMORY_BLOCK_SIZE,
// else ERROR_INVALID_PARAMETER. Encrypted memory may be moved as a whole and decrypted elsewhere.
WINAPI_EXPORT BOOL WINAPI CryptProtectMemory(LPVOID pDataIn, DWORD cbDataIn, DWORD dwFlags);
WINAPI_EXPORT BOOL WINAPI CryptUnprotectMemory(LPVOID pDataIn, DWORD cbDataIn, DWORD dwFlags);
}
