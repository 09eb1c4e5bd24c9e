// How the modules of an operation went.
#pragma once

#include "admin/backup_content.h"
#include "admin/report.h"
#include "config/outcome.h"

// One module's state, for people and programs.
struct ModuleState {
    std::string module;
    std::string state;
    bool isGood;
};

// After an export whose file holds `content`: exported, empty, failed, plug-in missing.
std::vector<ModuleState> StatesOfExport(const OperationOutcome& outcome,
                                        const BackupContent& content);

// Adds the states to a report, and returns whether all are good.
bool AddStates(const std::vector<ModuleState>& states, Report& report);

// Throws Failure for an operation that did not reach its modules.
void ExpectToHaveRun(const OperationOutcome& outcome);
