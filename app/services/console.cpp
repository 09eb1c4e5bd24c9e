#include "app/services/console.h"

#include "app/services/run_settings.h"
#include "common/console_text.h"
#include "common/format.h"

namespace {

void (*g_write)(WStringView text) = WriteConsoleText;

}  // namespace

void SendConsoleToStandardError() {
    g_write = WriteErrorText;
}

void ConsolePrint(const WCHAR* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    g_write(FormatWideV(format, arguments));
    va_end(arguments);
}

void DebugPrint(const WCHAR* format, ...) {
    if (!g_RunSettings.bDebug) return;
    va_list arguments;
    va_start(arguments, format);
    g_write(FormatWideV(format, arguments));
    va_end(arguments);
}
