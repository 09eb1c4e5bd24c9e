#include <handleapi.h>
#include <processthreadsapi.h>
#include <unistd.h>

extern "C" DWORD WINAPI GetCurrentProcessId() {
    return static_cast<DWORD>(getpid());
}

extern "C" DWORD WINAPI GetCurrentThreadId() {
    return static_cast<DWORD>(gettid());
}

extern "C" HANDLE WINAPI GetCurrentProcess() {
    return reinterpret_cast<HANDLE>(LONG_PTR{-1});
}

extern "C" HANDLE WINAPI GetCurrentThread() {
    return reinterpret_cast<HANDLE>(LONG_PTR{-2});
}
