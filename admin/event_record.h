// The record of an operation in the system's event log (syslog where that is the system's).
#pragma once

#include "admin/report.h"

// One record that says what was done, with which file and how it ended. A record that cannot be
// written changes nothing: the exit code tells the outcome.
void RecordOperation(WStringView command, WStringView file, ExitCode outcome);
