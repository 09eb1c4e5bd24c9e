// snbackup: makes backups of this machine, restores them, and looks after them: they are checked,
// shown, compared and given other passwords.
#include <CLI/CLI.hpp>
#include <functional>

#include "admin/commands.h"
#include "admin/event_record.h"
#include "app/run_driver.h"
#include "app/services/console.h"
#include "app/services/interruption.h"
#include "app/services/run_settings.h"
#include "client/plugins/feature.h"
#include "common/arguments.h"
#include "common/console_text.h"
#include "common/product_version.h"

namespace {

constexpr const char* kSchema = "snbackup/1";
constexpr int kJsonIndent = 2;

constexpr const char* kNotes =
    "Exit codes: 0 good; 1 not good: damaged or different; 2 wrong arguments; 3 wrong password;\n"
    "4 refused; 5 a file cannot be read or written.\n"
    "A password that no option gives is asked for without being shown.";

// The words of one command line.
struct Words {
    std::string first;
    std::string second;
    std::string out;
    std::string passwordFile;
    std::string otherPasswordFile;
    bool isPasswordOnInput = false;
    bool isOtherPasswordOnInput = false;
    bool isEncrypted = false;
    bool isPlain = false;
    bool isJson = false;
    std::vector<std::string> modules;
    std::string session;
    int keep = 0;
    bool hasUser = false;
    bool isVpnOnly = false;
    bool isLive = false;
    bool isDryRun = false;
    bool goesBack = false;
};

using Job = std::function<Report()>;

// Standard input is read at once, a line for each password, whether or not it comes to be used.
void Configure(PasswordSource& source, const std::string& file, bool isOnInput) {
    if (!file.empty()) source.UseFile(Utf8ToWide(file));
    if (!isOnInput) return;
    source.UseStandardInput();
    source.Get();
}

std::string ToJson(const char* command, const Report& report, const std::string& error) {
    nlohmann::ordered_json json = {{"schema", kSchema},
                                   {"command", command},
                                   {"exit_code", static_cast<int>(report.exitCode)},
                                   {"result", NameOf(report.exitCode)}};
    if (!error.empty()) json["error"] = error;
    json.update(report.facts);
    // Bytes of a file that are no UTF-8 become U+FFFD.
    return json.dump(kJsonIndent, ' ', false, nlohmann::ordered_json::error_handler_t::replace) +
           "\n";
}

// Runs a command to its end and says how it went; returns the exit code.
int Run(const char* command, const Words& words, const Job& job) {
    Report report;
    std::string error;
    try {
        report = job();
        error = report.error;
    } catch (const Failure& failure) {
        report.exitCode = failure.Code();
        error = failure.what();
    } catch (const std::exception& exception) {
        report.exitCode = ExitCode::kInaccessible;
        error = exception.what();
    }
    WriteConsoleText(Utf8ToWide(words.isJson ? ToJson(command, report, error) : report.text));
    if (!error.empty()) WriteErrorText(Utf8ToWide("snbackup: " + error + "\n"));
    RecordOperation(Utf8ToWide(command), Utf8ToWide(words.first), report.exitCode);
    return static_cast<int>(report.exitCode);
}

MachineScope ScopeOf(const Words& words) {
    return {words.modules, words.hasUser, Utf8ToWide(words.session), words.isVpnOnly};
}

Report RunVerify(const Words& words) {
    PasswordSource password(TEXT("password"), TEXT("password"));
    Configure(password, words.passwordFile, words.isPasswordOnInput);
    return Verify(Utf8ToWide(words.first), password);
}

Report RunShow(const Words& words) {
    PasswordSource password(TEXT("password"), TEXT("password"));
    Configure(password, words.passwordFile, words.isPasswordOnInput);
    return Show(Utf8ToWide(words.first), password);
}

Report RunDiff(const Words& words) {
    if (words.isLive == !words.second.empty()) {
        throw Failure(ExitCode::kUsage,
                      TEXT("either SECOND or --live says what FILE is compared with"));
    }
    PasswordSource first(TEXT("password"), TEXT("password"));
    PasswordSource second(TEXT("password of the second file"), TEXT("second-password"));
    Configure(first, words.passwordFile, words.isPasswordOnInput);
    Configure(second, words.otherPasswordFile, words.isOtherPasswordOnInput);
    if (words.isLive) {
        const RunEnvironment environment;
        return DiffLive(Utf8ToWide(words.first), ScopeOf(words), first);
    }
    const bool hasOwn = !words.otherPasswordFile.empty() || words.isOtherPasswordOnInput;
    return Diff(Utf8ToWide(words.first), Utf8ToWide(words.second), first, hasOwn ? second : first);
}

Report RunRekey(const Words& words) {
    PasswordSource password(TEXT("password"), TEXT("password"));
    PasswordSource changed(TEXT("new password"), TEXT("new-password"), true);
    Configure(password, words.passwordFile, words.isPasswordOnInput);
    Configure(changed, words.otherPasswordFile, words.isOtherPasswordOnInput);
    const Envelope envelope = words.isEncrypted ? Envelope::kEncrypted
                              : words.isPlain   ? Envelope::kPlain
                                                : Envelope::kAsBefore;
    const std::string& out = words.out.empty() ? words.first : words.out;
    return Rekey(Utf8ToWide(words.first), Utf8ToWide(out), envelope, password, changed);
}

Report RunCreate(const Words& words) {
    PasswordSource password(TEXT("password"), TEXT("password"), true);
    Configure(password, words.passwordFile, words.isPasswordOnInput);
    const RunEnvironment environment;
    return Create(Utf8ToWide(words.first), ScopeOf(words), words.isEncrypted, words.keep, password);
}

Report RunRestore(const Words& words) {
    PasswordSource password(TEXT("password"), TEXT("password"));
    PasswordSource unlock(TEXT("unlock password"), TEXT("unlock-password"));
    Configure(password, words.passwordFile, words.isPasswordOnInput);
    Configure(unlock, words.otherPasswordFile, words.isOtherPasswordOnInput);
    const RunEnvironment environment;
    return Restore(Utf8ToWide(words.first), {ScopeOf(words), words.isDryRun, words.goesBack},
                   password, unlock);
}

// The options that a command has beside its file and password.
enum class Options { kNone, kCreate, kDiff, kRekey, kRestore };

struct Command {
    const char* name;
    const char* help;
    const char* example;
    Report (*run)(const Words& words);
    const char* second = nullptr;         // what a second file is
    const char* otherPassword = nullptr;  // the options of a second password
    Options options = Options::kNone;
};

constexpr Command kCommands[] = {
    {"create", "makes a backup of this machine and verifies it before it replaces an older one",
     "snbackup create /backups --keep 30 --password-file password.txt", RunCreate, nullptr, nullptr,
     Options::kCreate},
    {"restore", "restores a backup, with a way back",
     "snbackup restore backup.xml --rollback --password-file password.txt", RunRestore, nullptr,
     "unlock-password", Options::kRestore},
    {"verify", "checks that a backup restores everything that it holds",
     "snbackup verify backup.xml --password-file password.txt", RunVerify},
    {"show", "tells what a backup holds, without its values", "snbackup show backup.xml", RunShow},
    {"diff", "compares a backup with another or with this machine, and names what differs",
     "snbackup diff monday.xml today.xml --password-file password.txt", RunDiff,
     "the backup that it is compared with", "second-password", Options::kDiff},
    {"rekey", "gives a backup another password",
     "snbackup rekey backup.xml --password-file old.txt --new-password-file new.txt", RunRekey,
     nullptr, "new-password", Options::kRekey},
};

void AddPassword(CLI::App& parser, const std::string& name, std::string& file, bool& isOnInput) {
    const std::string option = "--" + name;
    CLI::Option* const fromFile =
        parser.add_option(option + "-file", file, "a file whose first line is the password");
    parser
        .add_flag(option + "-stdin", isOnInput, "the next line of standard input is the password")
        ->excludes(fromFile);
}

void AddScope(CLI::App& parser, Words& words) {
    std::vector<std::string> names;
    for (const Feature& feature : kFeatures) names.emplace_back(feature.element);
    parser
        .add_option("-m,--module", words.modules, "this module alone; may be given several times")
        ->allow_extra_args(false)
        ->check(CLI::IsMember(names));
    parser.add_option("--session", words.session, "the session whose user is told, and is meant")
        ->check([](const std::string& text) {
            const bool isNumber = !text.empty() && text.size() < 10 &&
                                  text.find_first_not_of("0123456789") == std::string::npos;
            return std::string(isNumber ? "" : "a session is a decimal number");
        });
}

void AddOptions(CLI::App& parser, Options options, Words& words) {
    switch (options) {
        case Options::kNone:
            break;
        case Options::kCreate:
            AddScope(parser, words);
            parser.add_flag("--user", words.hasUser, "the user's own settings, too");
            parser
                .add_option("--keep", words.keep, "in a folder: how many backups of this host stay")
                ->check(CLI::Range(1, 1'000'000));
            parser.add_flag("--encrypt", words.isEncrypted, "the whole file is encrypted");
            break;
        case Options::kDiff:
            parser.add_flag("--live", words.isLive, "compares with this machine instead of SECOND");
            AddScope(parser, words);
            break;
        case Options::kRekey: {
            parser.add_option("--out", words.out,
                              "where the result goes; without it, FILE is replaced");
            CLI::Option* const encrypt =
                parser.add_flag("--encrypt", words.isEncrypted, "the whole result is encrypted");
            parser.add_flag("--plain", words.isPlain, "only protected values are encrypted")
                ->excludes(encrypt);
            break;
        }
        case Options::kRestore:
            AddScope(parser, words);
            parser.add_flag("--vpn-only", words.isVpnOnly, "VPN connections and nothing else");
            CLI::Option* const dryRun = parser.add_flag(
                "--dry-run", words.isDryRun, "says what would change, and changes nothing");
            parser
                .add_flag("--rollback", words.goesBack,
                          "goes back to the state before when a module fails")
                ->excludes(dryRun);
            break;
    }
}

void AddCommand(CLI::App& app, const Command& command, Words& words, int& exitCode) {
    CLI::App& parser = *app.add_subcommand(command.name, command.help);
    parser.group("Commands")->footer(std::string("Example:\n  ") + command.example);
    parser.add_option("FILE", words.first, "the backup")->required();
    if (command.second != nullptr) {
        parser.add_option("SECOND", words.second, command.second);
    }
    AddPassword(parser, "password", words.passwordFile, words.isPasswordOnInput);
    if (command.otherPassword != nullptr) {
        AddPassword(parser, command.otherPassword, words.otherPasswordFile,
                    words.isOtherPasswordOnInput);
    }
    AddOptions(parser, command.options, words);
    parser.add_flag("--json", words.isJson, "the result as JSON on standard output");
    parser.callback([&command, &words, &exitCode] {
        exitCode = Run(command.name, words, [&] { return command.run(words); });
    });
}

}  // namespace

extern "C" int wmain(int argc, WCHAR** argv) {
    HandleInterruptions();
    SendConsoleToStandardError();
    // Files are the caller's own, and nobody's desktop is told of them.
    g_RunSettings.bImpersonateUser = false;
    g_RunSettings.bQuiet = true;
    int exitCode = 0;
    Words words;
    CLI::App app("Makes, checks and restores backups of the Sentrel client.", "snbackup");
    app.allow_windows_style_options(false)->require_subcommand(1)->footer(kNotes);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.set_version_flag("--version", WideToUtf8(TEXT("snbackup " SENTREL_VERSION)));
    for (const Command& command : kCommands) AddCommand(app, command, words, exitCode);
    return ReadCommandLine(app, argc, argv, static_cast<int>(ExitCode::kUsage)).value_or(exitCode);
}
