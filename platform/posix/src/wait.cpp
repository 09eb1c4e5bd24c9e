#include <synchapi.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "deadline.h"
#include "handles.h"

using namespace platform;

extern "C" DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
    const auto object = ObjectOf(hHandle);
    return object ? object->Wait(Deadline(dwMilliseconds)) : WAIT_FAILED;
}

extern "C" void WINAPI Sleep(DWORD dwMilliseconds) {
    if (dwMilliseconds == INFINITE) {
        for (;;) pause();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(dwMilliseconds));
}
