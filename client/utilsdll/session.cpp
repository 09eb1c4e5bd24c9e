#include <windows.h>
#include <wtsapi32.h>

#include "client/include/utilsdll.h"

extern "C" int GetTokenOfSession(DWORD sessionId, HANDLE* token, DWORD reserved) {
    if (token == nullptr || reserved != 0) return ERROR_INVALID_PARAMETER;
    HANDLE opened = nullptr;
    if (!WTSQueryUserToken(sessionId, &opened)) {
        const DWORD error = GetLastError();
        return static_cast<int>(error == ERROR_SUCCESS ? DWORD{ERROR_GEN_FAILURE} : error);
    }
    *token = opened;
    return ERROR_SUCCESS;
}
