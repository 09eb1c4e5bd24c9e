// snclient: what an administrator, or another part of the client, does around the configuration
// tool.
#include <CLI/CLI.hpp>

#include "client/snclient/commands.h"
#include "common/arguments.h"
#include "common/process_guard.h"
#include "common/product_version.h"
#include "cryptd/providers.h"

namespace {

// What follows a command's name: an argument, or an option when its name begins with "--".
struct Word {
    const char* name;
    const char* help;
    std::vector<std::string> choices = {};  // empty: any text
};

struct Command {
    const char* name;
    const char* help;
    const char* example;
    std::vector<Word> words;
    int (*run)(Arguments arguments);
};

const Word kPassword = {"PASSWORD", "\"-\": typed, or the first line of standard input in UTF-8"};
const Word kOnOrOff = {"STATE", "the state from now on", {"on", "off"}};

const Command kCommands[] = {
    {"status",
     "shows the client's state and the user's rights, a fact on each line",
     "snclient status",
     {},
     ShowStatus},
    {"set-lock-password",
     "sets the configuration lock password",
     "snclient set-lock-password -",
     {kPassword},
     SetLockPassword},
    {"clear-lock-password",
     "removes the configuration lock password, and unlocks the registry",
     "snclient clear-lock-password",
     {},
     ClearLockPassword},
    {"lock",
     "locks the client's part of the registry; needs a lock password",
     "snclient lock",
     {},
     LockRegistry},
    {"unlock", "unlocks it", "snclient unlock", {}, UnlockRegistry},
    {"managed",
     "says whether the client is managed centrally",
     "snclient managed off",
     {kOnOrOff},
     SetManaged},
    {"fips", "switches FIPS mode", "snclient fips on", {kOnOrOff}, SetFips},
    {"clear-fips-error",
     "ends the FIPS error mode and removes its message",
     "snclient clear-fips-error",
     {},
     LeaveFipsErrorMode},
    {"service",
     "starts or stops a service; one that starts for the first time is registered",
     "snclient service SA_Scheduler start",
     {{"NAME", "the service's name"}, {"ACTION", "what it is told", {"start", "stop"}}},
     ControlClientService},
    {"encrypt-password",
     "prints the encrypted form of a password, for SNConfig -p",
     "snclient encrypt-password -",
     {kPassword},
     EncryptPassword},
    {"encrypt-pid",
     "prints the encrypted form of a process id, for SNConfig -c",
     "snclient encrypt-pid 4711",
     {{"PID", "the process id in decimal"}},
     EncryptProcessId},
    {"encrypt-file",
     "encrypts a file with a password",
     "snclient encrypt-file backup.xml backup.enc - --marker",
     {{"IN", "the file that is read"},
      {"OUT", "the file that is made or replaced"},
      kPassword,
      {"--marker", "puts the marker \"Enc \" before it"}},
     EncryptFileContent},
    {"protect-file",
     "protects a file for this machine or for the current user, in place",
     "snclient protect-file settings.xml machine",
     {{"FILE", "the file that is changed"}, {"SCOPE", "who can read it", {"machine", "user"}}},
     ProtectFile},
    {"mask-file",
     "masks a file, or takes its mask off, in place",
     "snclient mask-file settings.xml",
     {{"FILE", "the file that is changed"}},
     MaskFile},
    {"protect-value",
     "keeps a string value of HKLM\\... or HKCU\\... encrypted from now on",
     "snclient protect-value 'HKCU\\Software\\Verdane\\Sentrel\\SA_UI' token",
     {{"KEY", "the registry key"}, {"VALUE", "the value's name"}},
     ProtectValue},
};

constexpr const char* kNotes =
    "A word that begins with \"-\" and is no option stands behind \"--\".\n"
    "Exit codes: 0 done, 1 failed, 2 wrong arguments.";

void AddWord(CLI::App& parser, const Word& word) {
    if (word.name[0] == '-') {
        parser.add_flag(word.name, word.help);
        return;
    }
    CLI::Option* const option = parser.add_option(word.name, word.help)->required();
    if (!word.choices.empty()) option->check(CLI::IsMember(word.choices));
}

// What was given for it; nothing for an option that was left out.
WString Given(const CLI::App& parser, const Word& word) {
    const auto& results = parser.get_option(word.name)->results();
    return results.empty() ? WString() : Utf8ToWide(results.front());
}

void AddCommand(CLI::App& app, const Command& command, int& exitCode) {
    CLI::App* const parser = app.add_subcommand(command.name, command.help);
    parser->group("Commands")->footer(std::string("Example:\n  ") + command.example);
    for (const Word& word : command.words) AddWord(*parser, word);
    parser->callback([parser, &command, &exitCode] {
        std::vector<WString> arguments;
        for (const Word& word : command.words) arguments.push_back(Given(*parser, word));
        exitCode = command.run(arguments);
    });
}

}  // namespace

extern "C" int wmain(int argc, WCHAR** argv) {
    KeepMemoryOutOfCrashReports();
    CryptdShutOutConfiguration();
    int exitCode = kExitOk;
    CLI::App app("What stands around the configuration tool SNConfig.", "snclient");
    app.allow_windows_style_options(false)->require_subcommand(1)->footer(kNotes);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.set_version_flag("--version", WideToUtf8(TEXT("snclient " SENTREL_VERSION)));
    for (const Command& command : kCommands) AddCommand(app, command, exitCode);
    return ReadCommandLine(app, argc, argv, kExitUsage).value_or(exitCode);
}
