#include "config/dispatch.h"

#include "config/export_phases.h"
#include "config/import_phases.h"
#include "config/modules.h"

bool DispatchModules(const WString& file, const std::vector<WString>& modules,
                     const Operation& operation, const SessionId& session,
                     const SecureText& password) {
    const bool isReady = operation->isExport ? BeginExport(file, password)
                                             : BeginImport(file, operation, session.number);
    if (!isReady) return false;

    const bool succeeded =
        HaveSucceeded(RunModules(file, modules, operation, session.text, password));

    if (operation->isExport)
        return FinishExport(file, operation, session.number, password, succeeded);
    FinishImport(file, operation, session.number, password, succeeded);
    return succeeded;
}
