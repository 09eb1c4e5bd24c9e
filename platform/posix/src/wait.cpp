#include <synchapi.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "futex.h"
#include "handles.h"

extern "C" DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    const auto object = platform::ObjectOf(hHandle);
    return object ? object->Wait(dwMilliseconds) : WAIT_FAILED;
}

extern "C" void WINAPI Sleep(DWORD dwMilliseconds) {
    if (dwMilliseconds == INFINITE) {
        for (;;) pause();
    }
    const auto end = platform::DeadlineOf(dwMilliseconds);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &*end, nullptr) == EINTR) continue;
}
