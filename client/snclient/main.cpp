// snclient: what an administrator, or another part of the client, does around the configuration
// tool.
#include "client/snclient/commands.h"
#include "common/console_text.h"
#include "common/process_guard.h"
#include "cryptd/providers.h"

namespace {

struct Command {
    const WCHAR* name;
    std::size_t minArguments;
    std::size_t maxArguments;
    int (*run)(Arguments arguments);
    const WCHAR* synopsis;
    const WCHAR* help;
};

constexpr Command kCommands[] = {
    {TEXT("status"), 0, 0, ShowStatus, TEXT("status"),
     TEXT("shows the client's state and the user's rights, a fact on each line")},
    {TEXT("set-lock-password"), 1, 1, SetLockPassword, TEXT("set-lock-password PASSWORD"),
     TEXT("sets the configuration lock password")},
    {TEXT("clear-lock-password"), 0, 0, ClearLockPassword, TEXT("clear-lock-password"),
     TEXT("removes the configuration lock password, and unlocks the registry")},
    {TEXT("lock"), 0, 0, LockRegistry, TEXT("lock"),
     TEXT("locks the client's part of the registry; needs a lock password")},
    {TEXT("unlock"), 0, 0, UnlockRegistry, TEXT("unlock"), TEXT("unlocks it")},
    {TEXT("managed"), 1, 1, SetManaged, TEXT("managed on|off"),
     TEXT("says whether the client is managed centrally")},
    {TEXT("fips"), 1, 1, SetFips, TEXT("fips on|off"), TEXT("switches FIPS mode")},
    {TEXT("clear-fips-error"), 0, 0, LeaveFipsErrorMode, TEXT("clear-fips-error"),
     TEXT("ends the FIPS error mode and removes its message")},
    {TEXT("service"), 2, 2, ControlClientService, TEXT("service NAME start|stop"),
     TEXT("starts or stops a service; one that starts for the first time is registered")},
    {TEXT("encrypt-password"), 1, 1, EncryptPassword, TEXT("encrypt-password PASSWORD"),
     TEXT("prints the encrypted form of a password, for SNConfig -p")},
    {TEXT("encrypt-pid"), 1, 1, EncryptProcessId, TEXT("encrypt-pid PID"),
     TEXT("prints the encrypted form of a process id, for SNConfig -c")},
    {TEXT("encrypt-file"), 3, 4, EncryptFileContent,
     TEXT("encrypt-file IN OUT PASSWORD [--marker]"),
     TEXT("encrypts a file with a password; the marker \"Enc \" can stand before it")},
    {TEXT("protect-file"), 2, 2, ProtectFile, TEXT("protect-file FILE machine|user"),
     TEXT("protects a file for this machine or for the current user, in place")},
    {TEXT("mask-file"), 1, 1, MaskFile, TEXT("mask-file FILE"),
     TEXT("masks a file, or takes its mask off, in place")},
    {TEXT("protect-value"), 2, 2, ProtectValue, TEXT("protect-value KEY VALUE"),
     TEXT("keeps a string value of HKLM\\... or HKCU\\... encrypted from now on")},
};

constexpr const WCHAR* kNotes =
    TEXT("\nPASSWORD \"-\" is typed, or read from the first line of standard input in UTF-8.\n")
        TEXT("Exit codes: 0 done, 1 failed, 2 wrong arguments.\n");

WString HelpOn(const Command& command) {
    return WString(TEXT("  ")) + command.synopsis + TEXT("\n      ") + command.help + TEXT("\n");
}

WString HelpOnAll() {
    WString text =
        TEXT("usage: snclient COMMAND [ARGUMENT...]\n       snclient --help | --version\n\n");
    for (const Command& command : kCommands) text += HelpOn(command);
    return text + kNotes;
}

const Command* FindCommand(WStringView name) {
    for (const Command& command : kCommands) {
        if (name == command.name) return &command;
    }
    return nullptr;
}

int Usage(const WString& text) {
    WriteErrorText(text);
    return kExitUsage;
}

bool AsksForHelp(WStringView word) {
    return word == TEXT("--help") || word == TEXT("-h") || word == TEXT("help");
}

}  // namespace

extern "C" int wmain(int argc, WCHAR** argv) {
    KeepMemoryOutOfCrashReports();
    CryptdShutOutConfiguration();
    const Arguments words(argv, static_cast<std::size_t>(argc));
    if (words.size() < 2) return Usage(HelpOnAll());
    if (AsksForHelp(words[1])) {
        WriteConsoleText(HelpOnAll());
        return kExitOk;
    }
    if (WStringView(words[1]) == TEXT("--version")) {
        WriteVersion(TEXT("snclient"));
        return kExitOk;
    }
    const Command* const command = FindCommand(words[1]);
    if (command == nullptr) return WrongArgument(TEXT("no command %s; see --help"), words[1]);

    const Arguments arguments = words.subspan(2);
    if (arguments.size() == 1 && WStringView(arguments[0]) == TEXT("--help")) {
        WriteConsoleText(HelpOn(*command));
        return kExitOk;
    }
    if (arguments.size() < command->minArguments || arguments.size() > command->maxArguments) {
        return Usage(TEXT("usage:\n") + HelpOn(*command));
    }
    return command->run(arguments);
}
