#include "app/services/client_log.h"

SN_LOG_HANDLE g_hLog = nullptr;
