// snservice: the reference program of the client's services. The service manager starts it for any
// of them; it runs until it is told to stop, and does nothing but that.
#include "common/console_text.h"
#include "common/handles.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;

// The name by which the service manager calls the service back: any will do in a process that has
// but one service.
WCHAR ownService[] = TEXT("");

SERVICE_STATUS_HANDLE statusHandle;
HANDLE stopEvent;

void Report(DWORD state, DWORD error = ERROR_SUCCESS) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
    status.dwWin32ExitCode = error;
    SetServiceStatus(statusHandle, &status);
}

void WINAPI HandleControl(DWORD control) {
    if (control != SERVICE_CONTROL_STOP) return;
    Report(SERVICE_STOP_PENDING);
    SetEvent(stopEvent);
}

void WINAPI RunService(DWORD /*argumentCount*/, WCHAR** /*arguments*/) {
    const UniqueHandle stop(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    stopEvent = stop.get();
    statusHandle = RegisterServiceCtrlHandlerW(ownService, HandleControl);
    if (statusHandle == nullptr) return;
    if (stop) {
        Report(SERVICE_RUNNING);
        WaitForSingleObject(stop.get(), INFINITE);
        Report(SERVICE_STOPPED);
    } else {
        Report(SERVICE_STOPPED, ERROR_NOT_ENOUGH_MEMORY);
    }
}

}  // namespace

extern "C" int wmain(int /*argc*/, WCHAR** /*argv*/) {
    const SERVICE_TABLE_ENTRYW services[] = {{ownService, RunService}, {nullptr, nullptr}};
    if (StartServiceCtrlDispatcherW(services)) return kExitOk;
    WriteErrorText(TEXT("snservice is started by the service manager: see snclient service\n"));
    return kExitFailed;
}
