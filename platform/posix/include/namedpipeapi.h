// Named pipes in message mode: a server process offers instances of a pipe, a client connects to
// one of them, and both exchange messages. A pipe's name is "\\.\pipe\NAME"; case does not matter.
//
// A message has at most about 200,000 bytes (the system's limit of a socket's buffer); a larger one
// fails with ERROR_NO_SYSTEM_RESOURCES. A message stays readable after its writer has gone.
//
// Clients wait in the server's queue until an instance takes them: opening the pipe succeeds as
// long as it is served, and fails with ERROR_PIPE_BUSY only when some thousand wait. A client that
// has hung up in the queue is not taken. The owner of a client's handle (GetSecurityInfo) is the
// account that serves the pipe.
#pragma once

#include <minwinbase.h>

#define PIPE_ACCESS_DUPLEX 0x00000003
#define FILE_FLAG_FIRST_PIPE_INSTANCE 0x00080000
#define PIPE_WAIT 0x00000000
#define PIPE_READMODE_BYTE 0x00000000
#define PIPE_READMODE_MESSAGE 0x00000002
#define PIPE_TYPE_MESSAGE 0x00000004
#define PIPE_REJECT_REMOTE_CLIENTS 0x00000008
#define PIPE_UNLIMITED_INSTANCES 255

extern "C" {

// One more instance of a pipe, which clients can connect to from now on; INVALID_HANDLE_VALUE on
// failure. Only PIPE_ACCESS_DUPLEX and PIPE_TYPE_MESSAGE with PIPE_WAIT are supported. All
// instances belong to one process: ERROR_ACCESS_DENIED when another process serves the name, or
// when this one does and FILE_FLAG_FIRST_PIPE_INSTANCE is given; ERROR_PIPE_BUSY beyond
// nMaxInstances. The pipe is open to the process's own account, or with a present null access list
// to every account. The buffer sizes and the default time-out have no effect.
WINAPI_EXPORT HANDLE WINAPI CreateNamedPipeW(LPCWSTR lpName, DWORD dwOpenMode, DWORD dwPipeMode,
                                             DWORD nMaxInstances, DWORD nOutBufferSize,
                                             DWORD nInBufferSize, DWORD nDefaultTimeOut,
                                             LPSECURITY_ATTRIBUTES lpSecurityAttributes);

// Waits for a client. FALSE with ERROR_PIPE_CONNECTED when one was there already: that is as good.
// On an instance that was disconnected, clients can connect again from this call on.
WINAPI_EXPORT BOOL WINAPI ConnectNamedPipe(HANDLE hNamedPipe, LPOVERLAPPED lpOverlapped);

// Lets the calling thread know the client of an instance, until RevertToSelf: CheckTokenMembership
// tells who the client was when it connected. The thread does not act as the client, as if every
// client allowed no more than SECURITY_IDENTIFICATION; unlike on Windows, files are still used as
// before. ERROR_PIPE_LISTENING or ERROR_PIPE_NOT_CONNECTED when there is no client.
WINAPI_EXPORT BOOL WINAPI ImpersonateNamedPipeClient(HANDLE hNamedPipe);
// The process that connected to an instance.
WINAPI_EXPORT BOOL WINAPI GetNamedPipeClientProcessId(HANDLE Pipe, PULONG ClientProcessId);

// Ends the connection with the client.
WINAPI_EXPORT BOOL WINAPI DisconnectNamedPipe(HANDLE hNamedPipe);

// Sets how this end reads: PIPE_READMODE_MESSAGE, or PIPE_READMODE_BYTE as a new client's end does.
// In message mode, ReadFile of a message that is larger than its buffer fails with ERROR_MORE_DATA
// and leaves the rest to the next read. The other pointers are null.
WINAPI_EXPORT BOOL WINAPI SetNamedPipeHandleState(HANDLE hNamedPipe, LPDWORD lpMode,
                                                  LPDWORD lpMaxCollectionCount,
                                                  LPDWORD lpCollectDataTimeout);

// Tells whether the pipe is served (else ERROR_FILE_NOT_FOUND), after a moment in which a full
// queue may have moved. A client need not wait for a free instance: CreateFileW lets it into the
// queue.
WINAPI_EXPORT BOOL WINAPI WaitNamedPipeW(LPCWSTR lpNamedPipeName, DWORD nTimeOut);

// Writes one message and reads the next one. ERROR_BAD_PIPE when this end does not read messages,
// ERROR_PIPE_BUSY when an unread message is waiting, ERROR_MORE_DATA as for a read.
WINAPI_EXPORT BOOL WINAPI TransactNamedPipe(HANDLE hNamedPipe, LPVOID lpInBuffer,
                                            DWORD nInBufferSize, LPVOID lpOutBuffer,
                                            DWORD nOutBufferSize, LPDWORD lpBytesRead,
                                            LPOVERLAPPED lpOverlapped);
}
