#include "admin/passwords.h"

#include "admin/report.h"
#include "common/format.h"
#include "common/password_input.h"

namespace {

PasswordResult FromConsole(const WCHAR* what, bool isNew) {
    const WString prompt = FormatWide(TEXT("%s: "), what);
    const WString again = FormatWide(TEXT("%s, again: "), what);
    return isNew ? NewPasswordFromConsole(prompt.c_str(), again.c_str())
                 : PasswordFromConsole(prompt.c_str());
}

}  // namespace

const SecureText& PasswordSource::Get() {
    if (password_) return *password_;
    if (file_.empty() && !usesStandardInput_ && !IsConsoleInput()) {
        throw Failure(ExitCode::kUsage,
                      FormatWide(TEXT("the %s is needed: give --%s-file FILE or --%s-stdin"), what_,
                                 option_, option_));
    }
    PasswordResult result = !file_.empty()       ? PasswordFromFile(file_)
                            : usesStandardInput_ ? PasswordFromStandardInput()
                                                 : FromConsole(what_, isNew_);
    if (!result.password) {
        throw Failure(file_.empty() ? ExitCode::kUsage : ExitCode::kInaccessible, result.fault);
    }
    password_ = std::move(result.password);
    return *password_;
}
