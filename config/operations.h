// The operations by the names that the command line and the plug-ins know, compared exactly.
#pragma once

#include "common/text.h"

inline constexpr const WCHAR* kOpExport = TEXT("export");
inline constexpr const WCHAR* kOpExportNoComments = TEXT("export-no-comments");
inline constexpr const WCHAR* kOpExportInstall = TEXT("export-install");
inline constexpr const WCHAR* kOpImport = TEXT("import");
inline constexpr const WCHAR* kOpImportSettings = TEXT("import_settings");
inline constexpr const WCHAR* kOpImportPushConfig = TEXT("import_push_config");
inline constexpr const WCHAR* kOpImportGwyipConfig = TEXT("import_gwyip_config");
inline constexpr const WCHAR* kOpImportInstallerConfig = TEXT("import_installer_config");
// Formed for the system module when the caller proved itself.
inline constexpr const WCHAR* kOpImportCa = TEXT("import+CA");
inline constexpr const WCHAR* kOpImportInstallerConfigCa = TEXT("import_installer_config+ca");

inline bool IsExport(const WString& operation) {
    return operation == kOpExport || operation == kOpExportNoComments ||
           operation == kOpExportInstall;
}
