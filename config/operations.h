// The operations: what each asks of a request and how it reaches the plug-ins.
#pragma once

#include "common/text.h"

// The exports of a plug-in library (config_plugin.h).
enum class PluginExport { kImportFromXml, kExportToXml, kAdvancedOp };

// How an operation calls one library.
struct PluginCall {
    PluginExport function;
    // The log line that tells of a nonzero result. kNone: the result is not examined.
    enum class ErrorLine { kNone, kImporting, kExporting } errorLine;
    // kGatewayImport: the operation "gwy_import" for the session "0", whatever the run's are.
    enum class Arguments { kOfTheRun, kGatewayImport } arguments = Arguments::kOfTheRun;
};

// What holds for one operation. Whatever is no export is an import, which removes the comments from
// the file before its modules run.
struct OperationRow {
    WStringView name;  // empty: every name that has no row of its own
    bool isExport = false;
    bool obeysBackupSwitch = false;      // refused while the administrator has disabled backups
    bool isGuarded = false;              // rights, locks and password are checked; works on a copy
    bool unlocksRegistry = false;        // when the caller gives the unlock password
    bool locksRegistryAgain = false;     // at its end, when a lock password is set
    bool checksFile = false;             // before its modules run
    bool stripsCommentsAtEnd = false;    // of an export
    bool restoresUserSettings = false;   // ends as a whole restore: user section, notification
    bool forgetsInstallerState = false;  // in FIPS mode without the scheduler
    WStringView nameForVerifiedCaller = {};  // for the system module, when the caller proved itself
    PluginCall advancedLibraries;            // the call of libraries in the advanced-operation set
    PluginCall otherLibraries;
};

// An operation as it was asked for. Names are compared exactly; a name without a row of its own
// takes the row that passes the name through to each plug-in's AdvancedOp.
class Operation {
  public:
    explicit Operation(WString name);

    const WString& Name() const { return name_; }
    const OperationRow* operator->() const { return row_; }

  private:
    WString name_;
    const OperationRow* row_;
};

inline constexpr const WCHAR* kDefaultOperation = TEXT("export");
