// Exchanges on a named pipe in message mode that never take longer than they may.
#pragma once

#include <windows.h>

// Whom a caller takes for the server of a pipe: any account, or the system and administrators
// alone.
enum class PipeServer { kAnyone, kTrusted };

// Connects to the pipe, sends one message, receives one and disconnects. The time limit holds for
// all of it: for a free instance, for the connection and for the reply. `replySize` is the capacity
// on entry and the reply's bytes on return. The server may learn who the caller is but not act as
// the caller. Returns a Windows error code: ERROR_SUCCESS, ERROR_SEM_TIMEOUT when the time is up,
// ERROR_FILE_NOT_FOUND when nobody whom the caller takes serves the pipe, ERROR_MORE_DATA when the
// reply does not fit.
DWORD CallPipe(const WCHAR* pipe, const void* request, DWORD requestSize, void* reply,
               DWORD& replySize, DWORD milliseconds, PipeServer server);

// The serving side. `instance` was opened with FILE_FLAG_OVERLAPPED; each returns a Windows error
// code, and ERROR_SEM_TIMEOUT when the time is up (INFINITE: waits without limit).

// Waits for a client.
DWORD WaitForClient(HANDLE instance, DWORD milliseconds);
// Receives a message: ERROR_MORE_DATA when it is larger than the buffer, ERROR_BROKEN_PIPE when the
// client has gone.
DWORD ReceiveMessage(HANDLE instance, void* buffer, DWORD capacity, DWORD& size,
                     DWORD milliseconds);
DWORD SendMessageTo(HANDLE instance, const void* message, DWORD size, DWORD milliseconds);
