#include "app/command_line.h"

#include <utilsdll.h>

#include <cstdlib>

#include "app/services/console.h"
#include "app/services/run_settings.h"
#include "app/services/user_context.h"
#include "common/path.h"
#include "protect/encrypted_forms.h"

namespace {

// The usage text, one line a print. The first one takes the program's path.
constexpr const WCHAR* kUsageLines[] = {
    TEXT("usage:\t%s [-f settings.conf -m all -o export]\n"),
    TEXT("\nNote: switches and switch parameters are case sensitive.\n\n"),
    TEXT("  -f     <path to configuration file name, default is .\\settings.conf>\n"),
    TEXT("  -m     <module name>\n"),
    TEXT("           all = all modules (DEFAULT)\n"),
    TEXT("           vpn = IPSEC and SSL VPN\n"),
    TEXT("           av = AntiVirus\n"),
    TEXT("           firewall = FireWall\n"),
    TEXT("           esnac = Endpoint Control\n"),
    TEXT("           wanopt = WAN Optimization\n"),
    TEXT("           vuln = Vulnerability Scan\n"),
    TEXT("           ssoma = Single Sign-On Mobility Agent\n"),
    TEXT("           webfilter = Web Filter\n"),
    TEXT("           system = system configs\n"),
    TEXT("           sandbox = sandboxing\n"),
    TEXT("           usbmon = USB monitoring\n"),
    TEXT("           ac = Application Control\n"),
    TEXT("           rs = Ransomware Protection\n"),
    TEXT("           ztna = Zero-Trust Network Access\n"),
    TEXT("  -o     <operation>\n"),
    TEXT("           export = Export (DEFAULT)\n"),
    TEXT("           import = Import\n"),
    TEXT("           exportvpn = Export VPN Connections Only\n"),
    TEXT("           importvpn = Import VPN Connections Only\n"),
    TEXT("  -k     unlock password\n"),
    TEXT("           This allows snconfig to install a configuration file when\n"),
    TEXT("           the current configuration is locked down with a password.\n"),
    TEXT("  -d     enable debug output\n"),
    TEXT("  -q     quiet mode, no system tray notification\n"),
    TEXT("  -p     <password>\n"),
    TEXT("           This password is used to encrypt configuration data\n"),
    TEXT("  -u     include the current user's configuration data when backing up\n"),
    TEXT("  -h, -? this usage text\n"),
    TEXT("\n"),
};

constexpr const WCHAR* kPasswordTooShort = TEXT("Password must be >=8 characters.\n");
constexpr std::size_t kMinPasswordLength = 8;  // UTF-16 units, for a password given in plain

constexpr const WCHAR* kShortOptions = TEXT("c:s:f:m:o:i:p:uk:t:dq?hO:v:");

// Values of the long options, beyond every character.
constexpr int kNoImpersonateUser = 128;
constexpr int kVpnOnly = 129;
constexpr int kRequiredArgument = 1;

constexpr utils::option kLongOptions[] = {
    {TEXT("NOIMPERSONATEUSER"), kRequiredArgument, nullptr, kNoImpersonateUser},
    {TEXT("VPNONLY"), kRequiredArgument, nullptr, kVpnOnly},
    {nullptr, 0, nullptr, 0},
};

// True for a switch or long option that cannot do without an argument.
bool RequiresArgument(int option) {
    if (option >= kNoImpersonateUser) return true;
    const WStringView letters = kShortOptions;
    const std::size_t at = letters.find(static_cast<WCHAR>(option));
    return at != WStringView::npos && at + 1 < letters.size() && letters[at + 1] == ':';
}

// A path with its environment variables expanded; as typed when the expansion fails or does not fit
// a path buffer.
WString ExpandPath(const WCHAR* typed) {
    WCHAR expanded[kPathCapacity];
    const DWORD length = ExpandEnvironmentStringsW(typed, expanded, kPathCapacity);
    return length == 0 || length > kPathCapacity ? typed : expanded;
}

// A password given with -p: encrypted, or in plain and then long enough. False, with a message,
// when it is too short.
bool TakePassword(const WCHAR* argument) {
    SecureText& password = g_RunSettings.strPassword;
    if (DecryptPasswordArgument(argument, password)) return true;
    password = argument;
    if (password.size() >= kMinPasswordLength) return true;
    ConsolePrint(kPasswordTooShort);
    return false;
}

// A process proves that it started this one by its own id, encrypted with the key of this machine.
// An argument that does not decrypt proves nothing either way.
void TakeCaller(const WCHAR* argument) {
    const auto plain = DecryptArgument(argument, nullptr);
    if (!plain) return;
    const long id = std::strtol(reinterpret_cast<const char*>(plain->data()), nullptr, 10);
    g_RunSettings.bCallerVerified = id == static_cast<long>(GetParentProcessId());
}

}  // namespace

void PrintUsage(const WCHAR* programPath) {
    for (const WCHAR* line : kUsageLines) ConsolePrint(line, programPath);
}

std::optional<int> ParseCommandLine(int argc, WCHAR** argv) {
    RunSettings& settings = g_RunSettings;
    settings = RunSettings();
    utils::optind = 0;
    for (;;) {
        const int option = utils::getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr);
        if (option == -1) return std::nullopt;
        const WCHAR* const argument = utils::optarg;
        if (argument == nullptr && RequiresArgument(option)) continue;
        switch (option) {
            case 'f':
                settings.strConfigFile = ExpandPath(argument);
                break;
            case 'm':
                settings.strModule = argument;
                break;
            case 'o':
                settings.strOperation = argument;
                break;
            case 'c':
                TakeCaller(argument);
                break;
            case 'k':
                settings.strUnlockPassword = argument;
                break;
            case 'd':
                settings.bDebug = true;
                break;
            case 'q':
                settings.bQuiet = true;
                break;
            case 'p':
                if (!TakePassword(argument)) return kExitShortPassword;
                break;
            case 'u':
                settings.bIncludeUserConfig = true;
                break;
            case 'h':
            case '?':  // also an unknown switch and a missing argument
                PrintUsage(argc > 0 ? argv[0] : TEXT(""));
                return kExitUsage;
            case 'i':
                settings.strSessionId = argument;
                break;
            case 't':
                settings.strPassword = argument;
                break;
            case 'O':
                settings.strOutputFile = ExpandPath(argument);
                break;
            case 'v':
                settings.strVersionOverride = argument;
                break;
            case kNoImpersonateUser:
                settings.bImpersonateUser = false;
                break;
            case kVpnOnly:
                settings.bVpnOnly = true;
                break;
            case 0:
                PrintUsage(argc > 0 ? argv[0] : TEXT(""));
                return kExitParserValueZero;
            default:  // -s, and any other value of the parser
                break;
        }
    }
}
