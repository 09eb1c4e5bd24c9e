#include "client/snclient/commands.h"
#include "common/console_text.h"
#include "common/format.h"
#include "common/password_input.h"

int Failed(const WCHAR* format, const WString& subject, DWORD error) {
    WriteErrorText(TEXT("snclient: ") + FormatWide(format, subject.c_str(), error) + TEXT("\n"));
    return kExitFailed;
}

int WrongArgument(const WCHAR* format, const WString& argument) {
    Failed(format, argument);
    return kExitUsage;
}

std::optional<SecureText> PasswordArgument(const WString& argument) {
    if (argument != TEXT("-")) return SecureText(argument);
    PasswordResult read =
        IsConsoleInput() ? PasswordFromConsole(TEXT("Password: ")) : PasswordFromStandardInput();
    if (!read.password) Failed(TEXT("%s"), read.fault);
    return std::move(read.password);
}
