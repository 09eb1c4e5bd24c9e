// The entry through which every request of a normal run passes.
#pragma once

#include "common/secure_text.h"
#include "common/text.h"

// Does what the operation asks for and returns the run's result code. An empty module text means
// every module, an empty operation an export. An export returns 0 whatever became of it.
int RunConfigRequest(const WString& file, const WString& moduleText, const WString& operation,
                     const WString& sessionId, const SecureText& password,
                     const SecureText& unlockPassword);
