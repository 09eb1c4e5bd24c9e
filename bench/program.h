// Built programs, run as processes of their own.
#pragma once

#include <string>
#include <vector>

struct ProgramRun {
    bool succeeded;    // exit code 0
    double peakBytes;  // the most memory that it held at once
};

// Runs a program of the build, whose output is dropped, to its end.
ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& arguments);

// The same for SNConfig.
ProgramRun RunTool(const std::vector<std::string>& arguments);
