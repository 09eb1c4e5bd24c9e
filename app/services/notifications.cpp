#include "app/services/notifications.h"

#include <gui_message.h>
#include <utilsdll.h>

#include "app/services/run_settings.h"
#include "app/services/string_ids.h"
#include "common/format.h"
#include "common/path.h"

namespace {

constexpr int kTrayTextCapacity = 512;  // characters
constexpr DWORD kTrayWaitMilliseconds = 1000;

// The user interface of one session listens on a pipe of its own.
WString PipeOfSession(DWORD sessionId) {
    return FormatWide(TEXT("%s_%d"), kGuiPipe, sessionId).substr(0, kPathCapacity - 1);
}

// The string that a code shows in the tray; 0 when it shows none.
UINT TrayString(GuiCode code) {
    switch (code) {
        case GuiCode::kBackupCompleted:
            return IDS_BACKUP_COMPLETED;
        case GuiCode::kRestoreCompleted:
            return IDS_RESTORE_COMPLETED;
        default:
            return 0;
    }
}

}  // namespace

void NotifyGui(GuiCode code, DWORD sessionId) {
    if (g_RunSettings.bQuiet) return;
    const WString pipe = PipeOfSession(sessionId);
    if (PostMessageGui(pipe.c_str(), static_cast<DWORD>(code), 0, 0, 0, 0) == 0) return;

    const UINT string = TrayString(code);
    if (string == 0) return;
    WCHAR text[kTrayTextCapacity] = {};
    LoadStringW(GetModuleHandleW(nullptr), string, text, kTrayTextCapacity);

    ShowTrayIconNotification(text, 0);
    Sleep(kTrayWaitMilliseconds);
}
