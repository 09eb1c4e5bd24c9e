#include "common/console_text.h"

void WriteConsoleText(WStringView text) {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD ignored = 0;
    if (GetConsoleMode(output, &ignored)) {
        WriteConsoleW(output, text.data(), static_cast<DWORD>(text.size()), &ignored, nullptr);
        return;
    }
    const std::string bytes = WideToUtf8(text);
    WriteFile(output, bytes.data(), static_cast<DWORD>(bytes.size()), &ignored, nullptr);
}
