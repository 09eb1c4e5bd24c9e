#include "admin/passwords.h"

#include "admin/report.h"
#include "common/format.h"
#include "common/password_input.h"

namespace {

constexpr std::size_t kMinPasswordLength = 8;

PasswordResult FromConsole(const WCHAR* what, bool isNew) {
    const WString prompt = FormatWide(TEXT("%s: "), what);
    const WString again = FormatWide(TEXT("%s, again: "), what);
    return isNew ? NewPasswordFromConsole(prompt.c_str(), again.c_str())
                 : PasswordFromConsole(prompt.c_str());
}

}  // namespace

bool PasswordSource::CanGet() const {
    return password_ || !file_.empty() || usesStandardInput_ || IsConsoleInput();
}

const SecureText& PasswordSource::Get() {
    if (password_) return *password_;
    if (!CanGet()) {
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

const SecureText& PasswordSource::GetLongEnough() {
    if (Get().size() < kMinPasswordLength) {
        throw Failure(ExitCode::kUsage,
                      FormatWide(TEXT("the %s needs 8 characters at least"), what_));
    }
    return *password_;
}
