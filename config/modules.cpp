#include "config/modules.h"

#include <config_plugin.h>
#include <utilsdll.h>

#include <set>

#include "app/services/client_log.h"
#include "app/services/console.h"
#include "app/services/run_settings.h"
#include "common/handles.h"
#include "common/path.h"
#include "config/operations.h"

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

// The exports of a plug-in, with the lines that go with each.
struct PluginExport {
    const char* name;
    const WCHAR* foundLine;    // debug output
    const WCHAR* missingLine;  // log: library, GetLastError()
};
constexpr PluginExport kImportFromXml = {
    "ImportFromXml", TEXT("Get ImportFromXml operation API\n"),
    TEXT("GetProcAddress \"ImportFromXml\" from %s failed (%d)")};
constexpr PluginExport kExportToXml = {"ExportToXml", TEXT("Get ExportToXml operation API\n"),
                                       TEXT("GetProcAddress \"ExportToXml\" from %s failed (%d)")};
constexpr PluginExport kAdvancedOp = {"AdvancedOp",
                                      TEXT("Get AdvancedOp API for advanced operation\n"),
                                      TEXT("GetProcAddress \"AdvancedOp\" from %s failed (%d)")};

constexpr const WCHAR* kImportFailed = TEXT("Error in importing module: %s");
constexpr const WCHAR* kExportFailed = TEXT("Error in exporting module: %s");

// How an operation reaches a library.
enum class Libraries { kAll, kAdvanced, kOthers };
struct CallRule {
    const WCHAR* operation;  // null: any other
    Libraries libraries;
    const PluginExport& function;
    const WCHAR* failedLine;                 // log: library; null: the result is not examined
    const WCHAR* pluginOperation = nullptr;  // for AdvancedOp; null: the operation itself
    const WCHAR* sessionId = nullptr;        // null: the run's
};

constexpr CallRule kCallRules[] = {
    {kOpImport, Libraries::kAll, kImportFromXml, kImportFailed},
    {kOpImportSettings, Libraries::kAll, kImportFromXml, kImportFailed},
    {kOpExport, Libraries::kAll, kExportToXml, kExportFailed},
    {kOpExportNoComments, Libraries::kAll, kExportToXml, kExportFailed},
    {kOpExportInstall, Libraries::kAll, kAdvancedOp, kImportFailed},
    {kOpImportInstallerConfig, Libraries::kAdvanced, kAdvancedOp, kImportFailed},
    {kOpImportInstallerConfigCa, Libraries::kAdvanced, kAdvancedOp, kImportFailed},
    {kOpImportPushConfig, Libraries::kAdvanced, kAdvancedOp, kImportFailed, TEXT("gwy_import"),
     TEXT("0")},
    {kOpImportPushConfig, Libraries::kOthers, kImportFromXml, kImportFailed},
    {kOpImportInstallerConfig, Libraries::kOthers, kImportFromXml, kImportFailed},
    {kOpImportInstallerConfigCa, Libraries::kOthers, kImportFromXml, kImportFailed},
    {nullptr, Libraries::kAll, kAdvancedOp, nullptr},
};

const CallRule& RuleFor(const WString& operation, bool isAdvanced) {
    const CallRule* rule = kCallRules;
    while (rule->operation != nullptr &&
           (operation != rule->operation ||
            (rule->libraries == Libraries::kAdvanced && !isAdvanced) ||
            (rule->libraries == Libraries::kOthers && isAdvanced))) {
        ++rule;
    }
    return *rule;
}

bool IsSelected(const Module& module, const WString& requested) {
    return requested == module.name || requested == kEveryModule[0] || requested == kEveryModule[1];
}

// A verified caller's imports reach the system module under names of their own.
WString EffectiveOperation(const Module& module, const WString& operation) {
    if (g_RunSettings.bCallerVerified && WStringView(module.name) == kSystemModule) {
        if (operation == kOpImport) return kOpImportCa;
        if (operation == kOpImportInstallerConfig) return kOpImportInstallerConfigCa;
    }
    return operation;
}

UniqueLibrary LoadModule(const Module& module) {
    const WString folder = cfg_get_install_dir();
    WString path = JoinPath(folder, module.library);
    path.resize(std::min<std::size_t>(path.size(), MAX_PATH));
    DebugPrint(TEXT("Loading library: %s\n"), path.c_str());
    // A bare name would be looked for in places that are not the client's.
    SetLastError(ERROR_MOD_NOT_FOUND);
    UniqueLibrary library(folder.empty() ? nullptr : LoadLibraryW(path.c_str()));
    if (!library) DebugPrint(TEXT("Load library: %s (%d)\n"), module.library, GetLastError());
    return library;
}

int CallPlugin(FARPROC function, const CallRule& rule, const WString& file,
               const WString& operation, const WString& sessionId, const SecureText& password) {
    const WCHAR* session = rule.sessionId == nullptr ? sessionId.c_str() : rule.sessionId;
    // The address comes untyped from the library; its name says which signature it has.
    const auto address = reinterpret_cast<void*>(function);
    if (&rule.function == &kAdvancedOp) {
        const WCHAR* name =
            rule.pluginOperation == nullptr ? operation.c_str() : rule.pluginOperation;
        return reinterpret_cast<AdvancedOpFunction>(address)(file.c_str(), name, session,
                                                             password.c_str());
    }
    if (&rule.function == &kImportFromXml) {
        return reinterpret_cast<ImportFromXmlFunction>(address)(file.c_str(), session,
                                                                password.c_str());
    }
    return reinterpret_cast<ExportToXmlFunction>(address)(file.c_str(), session, password.c_str());
}

// Loads one module's library, makes the call and unloads it. False when the plug-in reported an
// error that counts.
bool RunModule(const Module& module, const LibrarySet& advanced, const WString& file,
               const WString& requestedOperation, const WString& sessionId,
               const SecureText& password) {
    const UniqueLibrary library = LoadModule(module);
    if (!library) return true;

    const WString operation = EffectiveOperation(module, requestedOperation);
    const CallRule& rule = RuleFor(operation, advanced.contains(module.library));

    const FARPROC function = GetProcAddress(library.get(), rule.function.name);
    if (function == nullptr) {
        log_error_fmt(g_hLog, rule.function.missingLine, module.library, GetLastError());
        return true;
    }
    DebugPrint(rule.function.foundLine);

    const int result = CallPlugin(function, rule, file, operation, sessionId, password);
    if (result == 0 || rule.failedLine == nullptr) return true;
    log_error_fmt(g_hLog, rule.failedLine, module.library);
    return false;
}

}  // namespace

std::vector<WString> SplitModuleText(const WString& text) {
    std::vector<WString> names = SplitText(text, TEXT(" "));
    if (text.empty() || text.back() == ' ') names.emplace_back();
    return names;
}

bool RunModules(const WString& file, const std::vector<WString>& modules, const WString& operation,
                const WString& sessionId, const SecureText& password) {
    const LibrarySet advanced = BuildAdvancedLibraries();
    bool succeeded = true;
    for (const WString& requested : modules) {
        for (const Module& module : kModules) {
            if (!IsSelected(module, requested)) continue;
            if (!RunModule(module, advanced, file, operation, sessionId, password)) {
                succeeded = false;
            }
        }
    }
    return succeeded;
}
