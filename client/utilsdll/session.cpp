#include <windows.h>
#include <wtsapi32.h>

#include "client/include/utilsdll.h"

extern "C" int GetTokenOfSession(DWORD sessionId, HANDLE* token, DWORD reserved) {
    if (token == nullptr || reserved != 0) return ERROR_INVALID_PARAMETER;
    HANDLE opened = nullptr;
    if (!WTSQueryUserToken(sessionId, &opened)) return static_cast<int>(GetLastError());
    *token = opened;
    return ERROR_SUCCESS;
}
