// The entry through which every request of a normal run passes.
#pragma once

#include "common/secure_text.h"
#include "common/text.h"
#include "config/guards.h"
#include "config/outcome.h"

// Does what the operation asks for and returns a result code (config/guards.h). An empty module
// text means every module, an empty operation an export. The guarded imports - "import",
// "import_push_config", "import_gwyip_config" and "import_installer_config" - are refused before
// anything is touched when the caller may not change the configuration; they work on a plain copy
// of the file. Once an operation has run, its result is kResultOk whatever became of it.
int RunConfigRequest(const WString& source, const WString& moduleText, const WString& operationName,
                     const WString& sessionId, const SecureText& password,
                     const SecureText& unlockPassword);

// The same; tells also what became of the operation and its modules.
RequestOutcome RunReportedRequest(const WString& source, const WString& moduleText,
                                  const WString& operationName, const WString& sessionId,
                                  const SecureText& password, const SecureText& unlockPassword);
