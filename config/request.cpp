#include "config/request.h"

#include <utilsdll.h>

#include "app/console.h"
#include "common/handles.h"
#include "config/export.h"
#include "config/operations.h"

namespace {

constexpr int kResultOk = 0;
constexpr int kResultUnusable = 5;

constexpr const WCHAR* kEveryModule = TEXT("*");
constexpr const WCHAR* kUnavailable = TEXT("The operation is not available: %s\n");

}  // namespace

int RunConfigRequest(const WString& file, const WString& moduleText, const WString& operation,
                     const WString& sessionId, const SecureText& password,
                     const SecureText& /*unlockPassword*/) {
    const WString modules = moduleText.empty() ? kEveryModule : moduleText;
    const WString effectiveOperation = operation.empty() ? kOpExport : operation;
    if (!IsExport(effectiveOperation)) {
        ConsolePrint(kUnavailable, effectiveOperation.c_str());
        return kResultUnusable;
    }

    // The client's file protection stands aside while the handles are open.
    const UniqueHandle fileSystemFilter(bBypassFsfilter());
    const UniqueHandle fileShield(bBypassGuardlet());

    ExportConfiguration(modules, file, effectiveOperation, sessionId, password);
    return kResultOk;
}
