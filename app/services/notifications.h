// What the client's user interface is told.
#pragma once

#include <windows.h>

// Codes that the user interface of a session understands. Those from 1 to 8 mean the string of the
// same number in the string table.
enum class GuiCode : DWORD {
    kProcessingFailed = 1,
    kWrongPassword = 3,
    kInvalidFormat = 4,
    kRestoreCompleted = 1639,  // also shown in the tray
    kBackupCompleted = 1640,   // also shown in the tray
};

// Posts a code to the user interface of a session. When it was delivered and is one of the two
// completions, also shows that as a tray notification in the thread's UI language and waits a
// second. Does nothing with the switch -q.
void NotifyGui(GuiCode code, DWORD sessionId);
