// What became of a request, beyond the result code that its caller's caller gets.
#pragma once

#include <vector>

#include "config/modules.h"

// Why the modules of an operation did not run.
enum class Obstacle {
    kNone,            // they ran
    kGuards,          // the request was refused, see its result code
    kBackupDisabled,  // by the administrator
    kNoPassword,
    kNoTemporaryFile,
    kNotAnnounced,  // the crypto service did not take the change
};

struct OperationOutcome {
    Obstacle obstacle = Obstacle::kNone;
    std::vector<ModuleOutcome> modules;  // those that were asked for and exist
    bool succeeded =
        false;  // no module and no phase failed and, of an export, the file was written
};

struct RequestOutcome {
    int result = 0;  // a result code (config/guards.h)
    OperationOutcome operation;
};
