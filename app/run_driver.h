// One run of the tool, from its first system call to its exit code.
#pragma once

#include <windows.h>

#include "config/configuration_mutex.h"
#include "config/outcome.h"

// Does the one job that the arguments ask for and returns the process's exit code:
//   0  nothing refused the job, whatever became of it; or usage was asked for
//   1  a plain password is too short, or the unlock password of an import is wrong
//   2  an import was refused: the configuration is locked
//   3  an import was refused: no administrator rights
//   4  the switch parser reported value 0
//   5  the file of an import is unusable or its password wrong
// While the configuration mutex of the client exists, the whole run owns it.
int RunTool(int argc, WCHAR** argv);

// What holds while a run lasts: the configuration mutex is owned if it exists, writes go where they
// say, texts are in the language of the session's user. The run's settings, passwords among them,
// are wiped at the end.
class RunEnvironment {
  public:
    RunEnvironment();
    RunEnvironment(const RunEnvironment&) = delete;
    RunEnvironment& operator=(const RunEnvironment&) = delete;
    ~RunEnvironment();

    // Whether the system redirected writes of this process.
    bool WasVirtualized() const { return wasVirtualized_; }

  private:
    ConfigurationMutex serialised_;
    bool wasVirtualized_;
};

// Runs the request of g_RunSettings with all that surrounds it: the event that tells of its end,
// the client's log. Writes are redirected again afterwards when they were before.
RequestOutcome RunNormally(bool wasVirtualized);
