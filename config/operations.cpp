#include "config/operations.h"

#include <algorithm>
#include <iterator>

namespace {

using Line = PluginCall::ErrorLine;

constexpr PluginCall kImport = {PluginExport::kImportFromXml, Line::kImporting};
constexpr PluginCall kExport = {PluginExport::kExportToXml, Line::kExporting};
constexpr PluginCall kExportInstall = {PluginExport::kAdvancedOp, Line::kImporting};
constexpr PluginCall kInstallerImport = {PluginExport::kAdvancedOp, Line::kImporting};
constexpr PluginCall kGatewayImport = {PluginExport::kAdvancedOp, Line::kImporting,
                                       PluginCall::Arguments::kGatewayImport};
constexpr PluginCall kPassThrough = {PluginExport::kAdvancedOp, Line::kNone};

constexpr OperationRow kRows[] = {
    {.name = TEXT("export"),
     .isExport = true,
     .obeysBackupSwitch = true,
     .advancedLibraries = kExport,
     .otherLibraries = kExport},
    {.name = TEXT("export-no-comments"),
     .isExport = true,
     .obeysBackupSwitch = true,
     .stripsCommentsAtEnd = true,
     .advancedLibraries = kExport,
     .otherLibraries = kExport},
    {.name = TEXT("export-install"),
     .isExport = true,
     .stripsCommentsAtEnd = true,
     .advancedLibraries = kExportInstall,
     .otherLibraries = kExportInstall},
    {.name = TEXT("import"),
     .isGuarded = true,
     .unlocksRegistry = true,
     .locksRegistryAgain = true,
     .checksFile = true,
     .restoresUserSettings = true,
     .nameForVerifiedCaller = TEXT("import+CA"),
     .advancedLibraries = kImport,
     .otherLibraries = kImport},
    {.name = TEXT("import_settings"),
     .locksRegistryAgain = true,
     .checksFile = true,
     .advancedLibraries = kImport,
     .otherLibraries = kImport},
    {.name = TEXT("import_push_config"),
     .isGuarded = true,
     .locksRegistryAgain = true,
     .advancedLibraries = kGatewayImport,
     .otherLibraries = kImport},
    {.name = TEXT("import_gwyip_config"),
     .isGuarded = true,
     .advancedLibraries = kPassThrough,
     .otherLibraries = kPassThrough},
    {.name = TEXT("import_installer_config"),
     .isGuarded = true,
     .locksRegistryAgain = true,
     .forgetsInstallerState = true,
     .nameForVerifiedCaller = TEXT("import_installer_config+ca"),
     .advancedLibraries = kInstallerImport,
     .otherLibraries = kImport},
    {.name = TEXT("import_installer_config+ca"),
     .advancedLibraries = kInstallerImport,
     .otherLibraries = kImport},
    {.name = {}, .advancedLibraries = kPassThrough, .otherLibraries = kPassThrough},
};

}  // namespace

Operation::Operation(WString name)
    : name_(std::move(name)), row_(std::ranges::find_if(kRows, [&](const OperationRow& row) {
          return row.name.empty() || row.name == name_;
      })) {}
