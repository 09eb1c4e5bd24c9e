// snclient: what an administrator, or another part of the client, does around the configuration
// tool.
#include <utilsdll.h>
#include <windows.h>

#include <span>

#include "common/console_text.h"
#include "common/format.h"
#include "common/handles.h"

namespace {

using Arguments = std::span<WCHAR* const>;

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

void Print(const WCHAR* format, const WCHAR* text) {
    WriteConsoleText(FormatWide(format, text));
}

// A registry key by its name as `reg` writes it: "HKLM\..." or "HKCU\...".
UniqueRegKey OpenNamedKey(WStringView name) {
    const auto separator = name.find('\\');
    const WStringView hive = name.substr(0, separator);
    const HKEY root = hive == TEXT("HKLM")   ? HKEY_LOCAL_MACHINE
                      : hive == TEXT("HKCU") ? HKEY_CURRENT_USER
                                             : nullptr;
    if (root == nullptr || separator == WStringView::npos) return {};
    return UniqueRegKey(reg_openkeyW(root, WString(name.substr(separator + 1)).c_str()));
}

// protect-value KEY NAME: keeps a plain string value in the protected form from now on - bound to
// the current user in the user's own hive, to the machine elsewhere.
int ProtectValue(Arguments arguments) {
    const WStringView keyName = arguments[0];
    const WCHAR* valueName = arguments[1];
    const UniqueRegKey key = OpenNamedKey(keyName);
    WCHAR* text = nullptr;
    if (!key || !reg_getstringW(key.get(), valueName, &text, nullptr)) {
        Print(TEXT("snclient: no string value %s in that key\n"), valueName);
        return kExitFailed;
    }
    const bool isProtected = keyName.starts_with(TEXT("HKCU"))
                                 ? reg_setstring_enc_cuW(key.get(), valueName, text)
                                 : reg_setstring_encW(key.get(), valueName, text);
    reg_free(text);
    if (isProtected) return kExitOk;
    Print(TEXT("snclient: cannot write %s\n"), valueName);
    return kExitFailed;
}

struct Command {
    const WCHAR* name;
    std::size_t arguments;
    int (*run)(Arguments arguments);
    const WCHAR* help;
};

constexpr Command kCommands[] = {
    {TEXT("protect-value"), 2, ProtectValue,
     TEXT("  protect-value KEY NAME   keep a string value of HKLM\\... or HKCU\\... encrypted\n")},
};

int Usage() {
    WriteConsoleText(TEXT("usage: snclient COMMAND [ARGUMENT...]\n\n"));
    for (const Command& command : kCommands) WriteConsoleText(command.help);
    return kExitUsage;
}

}  // namespace

extern "C" int wmain(int argc, WCHAR** argv) {
    const Arguments words(argv, static_cast<std::size_t>(argc));
    if (words.size() < 2) return Usage();
    const Arguments arguments = words.subspan(2);
    for (const Command& command : kCommands) {
        if (WStringView(words[1]) == command.name && arguments.size() == command.arguments) {
            return command.run(arguments);
        }
    }
    return Usage();
}
