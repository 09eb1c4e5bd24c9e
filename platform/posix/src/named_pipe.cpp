#include <ioapiset.h>
#include <namedpipeapi.h>
#include <synchapi.h>
#include <winbase.h>

#include <algorithm>

#include "last_error.h"
#include "pipe.h"
#include "security.h"

using namespace platform;

namespace {

// Between two tries of a client to get into a full queue.
constexpr DWORD kPauseMilliseconds = 5;

// Fails with ERROR_INVALID_NAME for a path that names no pipe.
bool TakeName(LPCWSTR path, std::string& name) {
    if (path == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    name = PipeNameOf(path);
    return !name.empty() || Fail(ERROR_INVALID_NAME);
}

}  // namespace

extern "C" {

HANDLE WINAPI CreateNamedPipeW(LPCWSTR lpName, DWORD dwOpenMode, DWORD dwPipeMode,
                               DWORD nMaxInstances, DWORD /*nOutBufferSize*/,
                               DWORD /*nInBufferSize*/, DWORD /*nDefaultTimeOut*/,
                               LPSECURITY_ATTRIBUTES lpSecurityAttributes) {
    constexpr DWORD kOpenFlags = FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE;
    constexpr DWORD kPipeFlags = PIPE_READMODE_MESSAGE | PIPE_REJECT_REMOTE_CLIENTS;
    std::string name;
    if (!TakeName(lpName, name)) return INVALID_HANDLE_VALUE;
    if (nMaxInstances == 0 || nMaxInstances > PIPE_UNLIMITED_INSTANCES) {
        return FailToOpen(ERROR_INVALID_PARAMETER);
    }
    if ((dwOpenMode & ~kOpenFlags) != PIPE_ACCESS_DUPLEX ||
        (dwPipeMode & ~kPipeFlags) != PIPE_TYPE_MESSAGE) {
        return FailToOpen(ERROR_NOT_SUPPORTED);
    }
    const auto instances = (dwOpenMode & FILE_FLAG_FIRST_PIPE_INSTANCE) != 0
                               ? PipeListener::Instances::kFirstOnly
                               : PipeListener::Instances::kAny;
    auto listener =
        PipeListener::Join(name, ModeOfNewFile(lpSecurityAttributes), nMaxInstances, instances);
    if (!listener) return INVALID_HANDLE_VALUE;
    return OpenHandle(std::make_shared<PipeInstance>(std::move(listener),
                                                     (dwOpenMode & FILE_FLAG_OVERLAPPED) != 0,
                                                     (dwPipeMode & PIPE_READMODE_MESSAGE) != 0));
}

BOOL WINAPI ConnectNamedPipe(HANDLE hNamedPipe, LPOVERLAPPED lpOverlapped) {
    const auto instance = ObjectOf<PipeInstance>(hNamedPipe);
    return instance ? instance->Connect(lpOverlapped) : FALSE;
}

BOOL WINAPI ImpersonateNamedPipeClient(HANDLE hNamedPipe) {
    const auto instance = ObjectOf<PipeInstance>(hNamedPipe);
    pid_t process = 0;
    Identity account;
    if (!instance || !instance->ReadClient(process, account)) return FALSE;
    Identify(std::move(account));
    return TRUE;
}

BOOL WINAPI GetNamedPipeClientProcessId(HANDLE Pipe, PULONG ClientProcessId) {
    const auto instance = ObjectOf<PipeInstance>(Pipe);
    if (ClientProcessId == nullptr) return Fail(ERROR_INVALID_PARAMETER);
    pid_t process = 0;
    Identity account;
    if (!instance || !instance->ReadClient(process, account)) return FALSE;
    *ClientProcessId = static_cast<ULONG>(process);
    return TRUE;
}

BOOL WINAPI DisconnectNamedPipe(HANDLE hNamedPipe) {
    const auto instance = ObjectOf<PipeInstance>(hNamedPipe);
    return instance ? instance->Disconnect() : FALSE;
}

BOOL WINAPI SetNamedPipeHandleState(HANDLE hNamedPipe, LPDWORD lpMode, LPDWORD lpMaxCollectionCount,
                                    LPDWORD lpCollectDataTimeout) {
    const auto end = ObjectOf<PipeEnd>(hNamedPipe);
    if (!end) return FALSE;
    if (lpMaxCollectionCount != nullptr || lpCollectDataTimeout != nullptr ||
        (lpMode != nullptr && (*lpMode & ~static_cast<DWORD>(PIPE_READMODE_MESSAGE)) != 0)) {
        return Fail(ERROR_NOT_SUPPORTED);
    }
    if (lpMode != nullptr) end->ReadMessages(*lpMode == PIPE_READMODE_MESSAGE);
    return TRUE;
}

BOOL WINAPI WaitNamedPipeW(LPCWSTR lpNamedPipeName, DWORD nTimeOut) {
    std::string name;
    if (!TakeName(lpNamedPipeName, name) || !IsPipeServed(name)) return FALSE;
    Sleep(std::min(nTimeOut, kPauseMilliseconds));
    return TRUE;
}

BOOL WINAPI TransactNamedPipe(HANDLE hNamedPipe, LPVOID lpInBuffer, DWORD nInBufferSize,
                              LPVOID lpOutBuffer, DWORD nOutBufferSize, LPDWORD lpBytesRead,
                              LPOVERLAPPED lpOverlapped) {
    const auto end = ObjectOf<PipeEnd>(hNamedPipe);
    if (!end || !end->MayTransact()) return FALSE;
    DWORD ignored = 0;
    return end->Perform({.writes = true,
                         .reads = true,
                         .output = lpInBuffer,
                         .outputSize = nInBufferSize,
                         .input = lpOutBuffer,
                         .inputSize = nOutBufferSize},
                        lpBytesRead == nullptr ? ignored : *lpBytesRead, lpOverlapped);
}

BOOL WINAPI GetOverlappedResult(HANDLE hFile, LPOVERLAPPED lpOverlapped,
                                LPDWORD lpNumberOfBytesTransferred, BOOL bWait) {
    const auto end = ObjectOf<PipeEnd>(hFile);
    if (!end) return FALSE;
    if (lpOverlapped == nullptr || lpNumberOfBytesTransferred == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    return end->ResultOf(*lpOverlapped, *lpNumberOfBytesTransferred, bWait != FALSE);
}

BOOL WINAPI CancelIoEx(HANDLE hFile, LPOVERLAPPED lpOverlapped) {
    const auto end = ObjectOf<PipeEnd>(hFile);
    return end ? end->Cancel(lpOverlapped) : FALSE;
}
}
