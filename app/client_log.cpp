#include "app/client_log.h"

SN_LOG_HANDLE g_hLog = nullptr;
