#include "common/console_text.h"

namespace {

void WriteText(HANDLE output, WStringView text) {
    DWORD ignored = 0;
    if (GetConsoleMode(output, &ignored)) {
        WriteConsoleW(output, text.data(), static_cast<DWORD>(text.size()), &ignored, nullptr);
        return;
    }
    const std::string bytes = WideToUtf8(text);
    WriteFile(output, bytes.data(), static_cast<DWORD>(bytes.size()), &ignored, nullptr);
}

}  // namespace

void WriteConsoleText(WStringView text) {
    WriteText(GetStdHandle(STD_OUTPUT_HANDLE), text);
}

void WriteErrorText(WStringView text) {
    WriteText(GetStdHandle(STD_ERROR_HANDLE), text);
}
