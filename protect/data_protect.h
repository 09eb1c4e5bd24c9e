// Files protected for this machine or for one of its users.
//
// Content of a protected file, before masking:
//   offset  0, 1 byte    ProtectionScope
//   offset  1, 64 bytes  entropy given to the system's data protection
//   offset 65            the protected blob of the plain content (CryptProtectData)
// On disk every byte of the whole file is masked (file_mask.h).
//
// Files are transformed in place through a mapping. Not to be used from two threads at once.
#pragma once

#include <windows.h>

#include "protect/key_material.h"

// Builds the file mask and the key material of this run, before main, and in FIPS mode sets OpenSSL
// up for it; later calls do nothing. False when an HMAC failed.
bool DataProtectInit();

// Results of the file operations.
inline constexpr int kDataOk = 0;
inline constexpr int kDataFailed = -1;       // could not be opened, mapped, protected or rewritten
inline constexpr int kDataNotReopened = -2;  // protected, but could not be reopened for masking

// Protects a file of 1 to 4,294,967,294 bytes.
int DataProtectFile(const WCHAR* path, ProtectionScope scope);

// Undoes it. kDataOk once the file is unmasked: when the system's protection cannot be undone - the
// file was only masked, or belongs to another machine or user - it stays in its unmasked form,
// whose reader decides what it is. kDataFailed when it is empty or cannot be opened or mapped.
int DataUnprotectFile(const WCHAR* path);

// Masks a whole file. kDataOk when it was mapped and processed.
int DataMaskFile(const WCHAR* path);

// Masks memory; nonzero on success.
int DataMaskBuffer(void* buffer, DWORD length);
