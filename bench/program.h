// The built tool, run as a process of its own.
#pragma once

#include <string>
#include <vector>

struct ProgramRun {
    bool succeeded;    // exit code 0
    double peakBytes;  // the most memory that it held at once
};

// Runs SNConfig, whose output is dropped, to its end.
ProgramRun RunTool(const std::vector<std::string>& arguments);
