#include "app/command_line.h"

#include <utilsdll.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>

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

// What a switch does with its argument. False when the run ends here with kExitShortPassword.
using Take = bool (*)(const WCHAR* argument);

template <auto field>
bool StoreText(const WCHAR* argument) {
    g_RunSettings.*field = argument;
    return true;
}

template <auto field>
bool StorePath(const WCHAR* argument) {
    g_RunSettings.*field = ExpandPath(argument);
    return true;
}

template <auto flag, bool value>
bool SetFlag(const WCHAR* /*argument*/) {
    g_RunSettings.*flag = value;
    return true;
}

// A password given with -p is encrypted, or in plain and then long enough.
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
bool TakeCaller(const WCHAR* argument) {
    auto plain = DecryptArgument(argument, nullptr);
    if (!plain) return true;
    const long id = std::strtol(reinterpret_cast<const char*>(plain->data()), nullptr, 10);
    plain.reset();
    g_RunSettings.bCallerVerified = id == static_cast<long>(GetParentProcessId());
    return true;
}

struct Switch {
    int value;  // the parser's
    Take take;
};

// -s and every other value of the parser do nothing.
constexpr Switch kSwitches[] = {
    {'f', StorePath<&RunSettings::strConfigFile>},
    {'m', StoreText<&RunSettings::strModule>},
    {'o', StoreText<&RunSettings::strOperation>},
    {'k', StoreText<&RunSettings::strUnlockPassword>},
    {'d', SetFlag<&RunSettings::bDebug, true>},
    {'q', SetFlag<&RunSettings::bQuiet, true>},
    {'p', TakePassword},
    {'u', SetFlag<&RunSettings::bIncludeUserConfig, true>},
    {'i', StoreText<&RunSettings::strSessionId>},
    {'t', StoreText<&RunSettings::strPassword>},
    {'c', TakeCaller},
    {'O', StorePath<&RunSettings::strOutputFile>},
    {'v', StoreText<&RunSettings::strVersionOverride>},
    {kNoImpersonateUser, SetFlag<&RunSettings::bImpersonateUser, false>},
    {kVpnOnly, SetFlag<&RunSettings::bVpnOnly, true>},
};

// Values that end the run with the usage text. The parser reports '?' also for an unknown switch
// and a missing argument, and 0 never with these switches.
struct UsageRequest {
    int value;
    int exitCode;
};
constexpr UsageRequest kUsageRequests[] = {
    {'h', kExitUsage}, {'?', kExitUsage}, {0, kExitParserValueZero}};

template <typename Row, std::size_t size>
const Row* Find(const Row (&rows)[size], int value) {
    const Row* const row = std::ranges::find(rows, value, &Row::value);
    return row == std::end(rows) ? nullptr : row;
}

}  // namespace

void PrintUsage(const WCHAR* programPath) {
    for (const WCHAR* line : kUsageLines) ConsolePrint(line, programPath);
}

std::optional<int> ParseCommandLine(int argc, WCHAR** argv) {
    g_RunSettings = RunSettings();
    for (;;) {
        const int value = utils::getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr);
        if (value == -1) return std::nullopt;
        if (const UsageRequest* const usage = Find(kUsageRequests, value)) {
            PrintUsage(argc > 0 ? argv[0] : TEXT(""));
            return usage->exitCode;
        }
        const WCHAR* const argument = utils::optarg;
        if (argument == nullptr && RequiresArgument(value)) continue;
        const Switch* const known = Find(kSwitches, value);
        if (known != nullptr && !known->take(argument)) return kExitShortPassword;
    }
}
