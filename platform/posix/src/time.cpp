#include <synchapi.h>
#include <sysinfoapi.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <thread>

namespace {

// The time of day, broken up by gmtime_r or localtime_r.
void FillTime(LPSYSTEMTIME result, tm* (*breakUp)(const time_t*, tm*)) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    breakUp(&now.tv_sec, &parts);
    *result = {.wYear = static_cast<WORD>(parts.tm_year + 1900),
               .wMonth = static_cast<WORD>(parts.tm_mon + 1),
               .wDayOfWeek = static_cast<WORD>(parts.tm_wday),
               .wDay = static_cast<WORD>(parts.tm_mday),
               .wHour = static_cast<WORD>(parts.tm_hour),
               .wMinute = static_cast<WORD>(parts.tm_min),
               .wSecond = static_cast<WORD>(parts.tm_sec),
               .wMilliseconds = static_cast<WORD>(now.tv_nsec / 1'000'000)};
}

}  // namespace

extern "C" void WINAPI GetSystemTime(LPSYSTEMTIME lpSystemTime) {
    FillTime(lpSystemTime, gmtime_r);
}

extern "C" void WINAPI GetLocalTime(LPSYSTEMTIME lpSystemTime) {
    FillTime(lpSystemTime, localtime_r);
}

extern "C" ULONGLONG WINAPI GetTickCount64() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000 +
           static_cast<ULONGLONG>(now.tv_nsec) / 1'000'000;
}

extern "C" void WINAPI Sleep(DWORD dwMilliseconds) {
    if (dwMilliseconds == INFINITE) {
        for (;;) pause();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(dwMilliseconds));
}
