#include "admin/report.h"

#include "common/format.h"

const char* NameOf(ExitCode code) {
    constexpr const char* kNames[] = {"good",           "not_good", "usage",
                                      "wrong_password", "refused",  "inaccessible"};
    return kNames[static_cast<std::size_t>(code)];
}

Failure::Failure(ExitCode exitCode, WStringView text)
    : exitCode_(exitCode), text_(WideToUtf8(text)) {}

std::string Shown(WStringView name) {
    return WideToUtf8(OneLine(name));
}
