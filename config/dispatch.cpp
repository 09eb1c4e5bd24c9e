#include "config/dispatch.h"

#include "config/export_phases.h"
#include "config/import_phases.h"
#include "config/modules.h"

OperationOutcome DispatchModules(ConfigFile& file, const std::vector<WString>& modules,
                                 const Operation& operation, const SessionId& session,
                                 const SecureText& password) {
    const WString& path = file.Path();
    const bool isReady = operation->isExport ? BeginExport(path, password)
                                             : BeginImport(file, operation, session.number);
    OperationOutcome outcome;
    if (!isReady) return outcome;
    file.Unload();  // the plug-ins load and save it by themselves

    outcome.modules = RunModules(path, modules, operation, session.text, password);
    outcome.succeeded = HaveSucceeded(outcome.modules);

    if (operation->isExport) {
        outcome.succeeded =
            FinishExport(path, operation, session.number, password, outcome.succeeded);
    } else {
        FinishImport(path, operation, session.number, password, outcome.succeeded);
    }
    return outcome;
}
