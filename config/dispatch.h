// One operation over a configuration file: its first phase, the modules, its closing phase.
#pragma once

#include <vector>

#include "app/services/user_context.h"
#include "common/secure_text.h"
#include "common/text.h"
#include "config/config_file.h"
#include "config/operations.h"
#include "config/outcome.h"

// Runs the operation on `file` - for an export a skeleton, for an import the plain document - with
// every requested module. It has succeeded when no plug-in that was called reported an error and no
// phase failed.
OperationOutcome DispatchModules(ConfigFile& file, const std::vector<WString>& modules,
                                 const Operation& operation, const SessionId& session,
                                 const SecureText& password);
