// The clock.
#pragma once

#include <minwinbase.h>

extern "C" {
// The time of day in UTC, and by the machine's time zone.
WINAPI_EXPORT void WINAPI GetSystemTime(LPSYSTEMTIME lpSystemTime);
WINAPI_EXPORT void WINAPI GetLocalTime(LPSYSTEMTIME lpSystemTime);
// Milliseconds since the machine started.
WINAPI_EXPORT ULONGLONG WINAPI GetTickCount64();
}
