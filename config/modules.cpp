#include "config/modules.h"

#include <config_plugin.h>
#include <utilsdll.h>

#include <algorithm>
#include <set>

#include "app/services/client_log.h"
#include "app/services/console.h"
#include "app/services/run_settings.h"
#include "common/handles.h"
#include "common/path.h"

namespace {

struct Module {
    const WCHAR* name;
    const WCHAR* library;  // base name; the loader adds the extension
};

constexpr Module kModules[] = {
    {TEXT("system"), TEXT("cfmsystem")},   {TEXT("vpn"), TEXT("cfmvpn")},
    {TEXT("av"), TEXT("cfmav")},           {TEXT("ssoma"), TEXT("cfmvssoma")},
    {TEXT("wanopt"), TEXT("cfmwanopt")},   {TEXT("webfilter"), TEXT("cfmwf")},
    {TEXT("firewall"), TEXT("cfmfw")},     {TEXT("vuln"), TEXT("cfmvuln")},
    {TEXT("sandbox"), TEXT("cfmsandbox")}, {TEXT("ae"), TEXT("cfmae")},
    {TEXT("usbmon"), TEXT("cfmusbmon")},   {TEXT("cloudscan"), TEXT("cfmcloudscan")},
    {TEXT("ac"), TEXT("cfmac")},           {TEXT("rs"), TEXT("cfmrs")},
    {TEXT("ztna"), TEXT("cfmztna")},       {TEXT("pam"), TEXT("cfmpam")},
    {TEXT("esnac"), TEXT("cfmesnac")},
};

constexpr const WCHAR* kSystemModule = TEXT("system");
constexpr const WCHAR* kEveryModule[] = {TEXT("all"), TEXT("*")};

// Libraries that push and installer imports drive through AdvancedOp.
constexpr const WCHAR* kAdvancedLibraries[] = {
    TEXT("cfmvpn"), TEXT("cfmfw"),      TEXT("cfmvuln"), TEXT("cfmsystem"), TEXT("cfmesnac"),
    TEXT("cfmav"),  TEXT("cfmsandbox"), TEXT("cfmae"),   TEXT("cfmusbmon"), TEXT("cfmcloudscan"),
    TEXT("cfmac"),  TEXT("cfmrs"),      TEXT("cfmztna"), TEXT("cfmpam"),
};
constexpr const WCHAR* kAdvancedLibrariesOfVpnOnly[] = {TEXT("cfmvpn"), TEXT("cfmpam")};

using LibrarySet = std::set<WString>;

LibrarySet BuildAdvancedLibraries() {
    if (g_RunSettings.bVpnOnly) {
        return {std::begin(kAdvancedLibrariesOfVpnOnly), std::end(kAdvancedLibrariesOfVpnOnly)};
    }
    return {std::begin(kAdvancedLibraries), std::end(kAdvancedLibraries)};
}

// An export of the plug-ins, with the lines that go with it.
struct ExportLines {
    const char* name;
    const WCHAR* found;    // debug output
    const WCHAR* missing;  // log: library, GetLastError()
};
// In the order of PluginExport.
constexpr ExportLines kExportLines[] = {
    {"ImportFromXml", TEXT("Get ImportFromXml operation API\n"),
     TEXT("GetProcAddress \"ImportFromXml\" from %s failed (%d)")},
    {"ExportToXml", TEXT("Get ExportToXml operation API\n"),
     TEXT("GetProcAddress \"ExportToXml\" from %s failed (%d)")},
    {"AdvancedOp", TEXT("Get AdvancedOp API for advanced operation\n"),
     TEXT("GetProcAddress \"AdvancedOp\" from %s failed (%d)")},
};

constexpr const WCHAR* kImportFailed = TEXT("Error in importing module: %s");
constexpr const WCHAR* kExportFailed = TEXT("Error in exporting module: %s");

constexpr const WCHAR* kGatewayOperation = TEXT("gwy_import");
constexpr const WCHAR* kGatewaySessionId = TEXT("0");

bool IsSelected(const Module& module, const WString& requested) {
    return requested == module.name || requested == kEveryModule[0] || requested == kEveryModule[1];
}

// A verified caller's imports reach the system module under names of their own.
Operation EffectiveOperation(const Module& module, const Operation& operation) {
    const bool isRenamed = g_RunSettings.bCallerVerified &&
                           WStringView(module.name) == kSystemModule &&
                           !operation->nameForVerifiedCaller.empty();
    return isRenamed ? Operation(WString(operation->nameForVerifiedCaller)) : operation;
}

UniqueLibrary LoadModule(const Module& module) {
    const WString folder = cfg_get_install_dir();
    WString path = JoinPath(folder, module.library);
    path.resize(std::min<std::size_t>(path.size(), MAX_PATH));
    DebugPrint(TEXT("Loading library: %s\n"), path.c_str());
    // A bare name would be searched in folders that are not the client's.
    SetLastError(ERROR_MOD_NOT_FOUND);
    UniqueLibrary library(folder.empty() ? nullptr : LoadLibraryW(path.c_str()));
    if (!library) DebugPrint(TEXT("Load library: %s (%d)\n"), module.library, GetLastError());
    return library;
}

// What a plug-in is called with.
struct PluginArguments {
    const WCHAR* file;
    const WCHAR* operation;
    const WCHAR* sessionId;
    const WCHAR* password;
};

// Calls an export. Its address comes untyped from the library; its name says which signature it
// has.
int CallExport(FARPROC function, PluginExport signature, const PluginArguments& with) {
    const auto address = reinterpret_cast<void*>(function);
    switch (signature) {
        case PluginExport::kImportFromXml:
            return reinterpret_cast<ImportFromXmlFunction>(address)(with.file, with.sessionId,
                                                                    with.password);
        case PluginExport::kExportToXml:
            return reinterpret_cast<ExportToXmlFunction>(address)(with.file, with.sessionId,
                                                                  with.password);
        case PluginExport::kAdvancedOp:
            break;
    }
    return reinterpret_cast<AdvancedOpFunction>(address)(with.file, with.operation, with.sessionId,
                                                         with.password);
}

// Loads one module's library, makes the call and unloads it.
ModuleOutcome RunModule(const Module& module, const LibrarySet& advanced, const WString& file,
                        const Operation& requested, const WString& sessionId,
                        const SecureText& password) {
    ModuleOutcome outcome = {.module = module.name};
    const UniqueLibrary library = LoadModule(module);
    if (!library) return outcome;
    outcome.isLibraryFound = true;

    const Operation operation = EffectiveOperation(module, requested);
    const PluginCall& call = advanced.contains(module.library) ? operation->advancedLibraries
                                                               : operation->otherLibraries;
    const ExportLines& lines = kExportLines[static_cast<std::size_t>(call.function)];
    const FARPROC function = GetProcAddress(library.get(), lines.name);
    if (function == nullptr) {
        log_error_fmt(g_hLog, lines.missing, module.library, GetLastError());
        return outcome;
    }
    outcome.isFunctionFound = true;
    DebugPrint(lines.found);

    PluginArguments arguments = {file.c_str(), operation.Name().c_str(), sessionId.c_str(),
                                 password.c_str()};
    if (call.arguments == PluginCall::Arguments::kGatewayImport) {
        arguments.operation = kGatewayOperation;
        arguments.sessionId = kGatewaySessionId;
    }
    outcome.result = CallExport(function, call.function, arguments);
    outcome.hasFailed = outcome.result != 0 && call.errorLine != PluginCall::ErrorLine::kNone;
    if (outcome.hasFailed) {
        log_error_fmt(
            g_hLog,
            call.errorLine == PluginCall::ErrorLine::kImporting ? kImportFailed : kExportFailed,
            module.library);
    }
    return outcome;
}

}  // namespace

std::vector<WString> SplitModuleText(const WString& text) {
    std::vector<WString> names = SplitText(text, TEXT(" "));
    if (text.empty() || text.back() == ' ') names.emplace_back();
    return names;
}

std::vector<ModuleOutcome> RunModules(const WString& file, const std::vector<WString>& modules,
                                      const Operation& operation, const WString& sessionId,
                                      const SecureText& password) {
    const LibrarySet advanced = BuildAdvancedLibraries();
    std::vector<ModuleOutcome> outcomes;
    for (const WString& requested : modules) {
        for (const Module& module : kModules) {
            if (!IsSelected(module, requested)) continue;
            outcomes.push_back(RunModule(module, advanced, file, operation, sessionId, password));
        }
    }
    return outcomes;
}

bool HaveSucceeded(const std::vector<ModuleOutcome>& outcomes) {
    return std::ranges::none_of(outcomes, &ModuleOutcome::hasFailed);
}
