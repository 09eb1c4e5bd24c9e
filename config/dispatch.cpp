#include "config/dispatch.h"

#include "config/export_phases.h"
#include "config/import_phases.h"
#include "config/modules.h"

bool DispatchModules(ConfigFile& file, const std::vector<WString>& modules,
                     const Operation& operation, const SessionId& session,
                     const SecureText& password) {
    const WString& path = file.Path();
    const bool isReady = operation->isExport ? BeginExport(path, password)
                                             : BeginImport(file, operation, session.number);
    if (!isReady) return false;
    file.Unload();  // the plug-ins load and save it by themselves

    const bool succeeded =
        HaveSucceeded(RunModules(path, modules, operation, session.text, password));

    if (operation->isExport)
        return FinishExport(path, operation, session.number, password, succeeded);
    FinishImport(path, operation, session.number, password, succeeded);
    return succeeded;
}
