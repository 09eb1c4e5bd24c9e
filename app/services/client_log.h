// The client's log, as this run sees it.
#pragma once

#include <utilsdll.h>

// The handle that every log line of the tool goes through: set by the run driver around the job of
// a normal run, null otherwise. The logging functions accept null and then do nothing.
extern SN_LOG_HANDLE g_hLog;
