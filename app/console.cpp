#include "app/console.h"

#include "app/run_settings.h"
#include "common/format.h"

namespace {

void PrintText(const WString& text) {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD ignored = 0;
    DWORD mode = 0;
    if (GetConsoleMode(output, &mode)) {
        WriteConsoleW(output, text.data(), static_cast<DWORD>(text.size()), &ignored, nullptr);
        return;
    }
    const std::string bytes = WideToUtf8(text);
    WriteFile(output, bytes.data(), static_cast<DWORD>(bytes.size()), &ignored, nullptr);
}

}  // namespace

void ConsolePrint(const WCHAR* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PrintText(FormatWideV(format, arguments));
    va_end(arguments);
}

void DebugPrint(const WCHAR* format, ...) {
    if (!g_RunSettings.bDebug) return;
    va_list arguments;
    va_start(arguments, format);
    PrintText(FormatWideV(format, arguments));
    va_end(arguments);
}
