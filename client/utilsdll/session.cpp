#include <windows.h>
#include <wtsapi32.h>

#include "client/include/utilsdll.h"

extern "C" int GetTokenOfSession(DWORD sessionId, HANDLE* token, DWORD reserved) {
    if (token == nullptr || reserved != 0) return ERROR_INVALID_PARAMETER;
    HANDLE opened = nullptr;
    if (!WTSQueryUserToken(sessionId, &opened)) {
        const DWORD error = GetLastError();
        return error == ERROR_SUCCESS ? ERROR_GEN_FAILURE : static_cast<int>(error);
    }
    *token = opened;
    return ERROR_SUCCESS;
}
