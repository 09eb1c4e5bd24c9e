// A library for the tests of the loader; it needs another one, the layer.
#include <client_export.h>
#include <windows.h>

#define SAMPLE_EXPORT extern "C" CLIENT_EXPORT

SAMPLE_EXPORT int SampleAnswer() {
    return 42;
}

// The name of the library that this code is in.
SAMPLE_EXPORT HMODULE SampleOwnModule() {
    HMODULE module = nullptr;
    GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<LPCWSTR>(&SampleOwnModule), &module);
    return module;
}
