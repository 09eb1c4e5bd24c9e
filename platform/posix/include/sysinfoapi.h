// The clock and the machine.
#pragma once

#include <minwinbase.h>

#define PROCESSOR_ARCHITECTURE_INTEL 0
#define PROCESSOR_ARCHITECTURE_ARM 5
#define PROCESSOR_ARCHITECTURE_AMD64 9
#define PROCESSOR_ARCHITECTURE_ARM64 12
#define PROCESSOR_ARCHITECTURE_UNKNOWN 0xFFFF

struct SYSTEM_INFO {
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};
using LPSYSTEM_INFO = SYSTEM_INFO*;

enum COMPUTER_NAME_FORMAT { ComputerNameDnsHostname = 1 };

extern "C" {
// The time of day in UTC, and by the machine's time zone.
WINAPI_EXPORT void WINAPI GetSystemTime(LPSYSTEMTIME lpSystemTime);
WINAPI_EXPORT void WINAPI GetLocalTime(LPSYSTEMTIME lpSystemTime);
// Milliseconds since the machine started.
WINAPI_EXPORT ULONGLONG WINAPI GetTickCount64();

// What the machine is, also for a program made for a smaller one. The mask of processors and the
// processor's model are 0.
WINAPI_EXPORT void WINAPI GetNativeSystemInfo(LPSYSTEM_INFO lpSystemInfo);
// The first part of the machine's host name, whole. The size is GetComputerNameW's; a small buffer
// is ERROR_MORE_DATA.
WINAPI_EXPORT BOOL WINAPI GetComputerNameExW(COMPUTER_NAME_FORMAT NameType, LPWSTR lpBuffer,
                                             LPDWORD nSize);
// Major version of the system in the lowest byte, minor version in the next, build in the upper
// word. The layer stands for Windows 8 (6.2, build 9200), which is also what later systems tell a
// program that names none.
WINAPI_EXPORT DWORD WINAPI GetVersion();
}
