// Calls of the system's own library, which programs find by name in "ntdll".
#pragma once

#include <winnt.h>

using NTSTATUS = LONG;
#define STATUS_SUCCESS (static_cast<NTSTATUS>(0x00000000))
#define STATUS_BUFFER_OVERFLOW (static_cast<NTSTATUS>(0x80000005))
#define STATUS_UNSUCCESSFUL (static_cast<NTSTATUS>(0xC0000001))
#define STATUS_INVALID_HANDLE (static_cast<NTSTATUS>(0xC0000008))
#define STATUS_INVALID_PARAMETER (static_cast<NTSTATUS>(0xC000000D))
#define STATUS_BUFFER_TOO_SMALL (static_cast<NTSTATUS>(0xC0000023))
#define STATUS_NOT_SUPPORTED (static_cast<NTSTATUS>(0xC00000BB))
#define STATUS_REGISTRY_IO_FAILED (static_cast<NTSTATUS>(0xC000014D))
#define STATUS_KEY_DELETED (static_cast<NTSTATUS>(0xC000017C))

enum KEY_INFORMATION_CLASS { KeyNameInformation = 3 };

struct KEY_NAME_INFORMATION {
    ULONG NameLength;  // in bytes, without a terminator
    WCHAR Name[1];
};

extern "C" {

// The full name of an opened key, such as \REGISTRY\MACHINE\Software, or
// \REGISTRY\USER\1000\Software in the hive of account 1000. *ResultLength becomes the size that the
// whole answer needs, also when the buffer is too small for the record (STATUS_BUFFER_TOO_SMALL) or
// for the name, which is then cut (STATUS_BUFFER_OVERFLOW). Predefined keys are no handles here, as
// on Windows.
WINAPI_EXPORT NTSTATUS WINAPI NtQueryKey(HANDLE KeyHandle,
                                         KEY_INFORMATION_CLASS KeyInformationClass,
                                         PVOID KeyInformation, ULONG Length, ULONG* ResultLength);
}
