#include "config/dispatch.h"

#include "config/export_phases.h"
#include "config/import_phases.h"
#include "config/modules.h"
#include "config/operations.h"

bool DispatchModules(const WString& file, const std::vector<WString>& modules,
                     const WString& operation, const WString& sessionId,
                     const SecureText& password) {
    const bool isExport = IsExport(operation);
    const bool isReady =
        isExport ? BeginExport(file, password) : BeginImport(file, operation, sessionId);
    if (!isReady) return false;

    const bool succeeded = RunModules(file, modules, operation, sessionId, password);

    if (isExport) return FinishExport(file, operation, sessionId, password, succeeded);
    FinishImport(file, operation, sessionId, password, succeeded);
    return succeeded;
}
