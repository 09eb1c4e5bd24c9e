// The operation of a request, once the request may do it: an export or an import.
#pragma once

#include "app/services/user_context.h"
#include "common/secure_text.h"
#include "common/text.h"
#include "config/config_file.h"
#include "config/operations.h"
#include "config/outcome.h"

// Export operations write the configuration of the selected modules to `file`, which is left alone
// when the export stops before its modules ran; they need a password. Every other operation hands
// `file` to the selected modules, serialised with the client's other components, and tells the
// scheduler. The outcome is reported on the console, in the log and to the user interface.
OperationOutcome RunOperation(const WString& moduleText, ConfigFile& file,
                              const Operation& operation, const SessionId& session,
                              const SecureText& password);
