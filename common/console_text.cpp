#include "common/console_text.h"

#include <cstdio>

#include "common/product_version.h"

namespace {

void WriteText(DWORD stream, std::FILE* file, WStringView text) {
    const HANDLE output = GetStdHandle(stream);
    DWORD ignored = 0;
    if (GetConsoleMode(output, &ignored)) {
        WriteConsoleW(output, text.data(), static_cast<DWORD>(text.size()), &ignored, nullptr);
        return;
    }
    const std::string bytes = WideToUtf8(text);
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fflush(file);
}

}  // namespace

void WriteConsoleText(WStringView text) {
    WriteText(STD_OUTPUT_HANDLE, stdout, text);
}

void WriteErrorText(WStringView text) {
    WriteText(STD_ERROR_HANDLE, stderr, text);
}

void WriteVersion(WStringView program) {
    WriteConsoleText(WString(program).append(TEXT(" " SENTREL_VERSION "\n")));
}
