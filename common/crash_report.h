// What a crash tells of the process's memory.
#pragma once

// Keeps the process's memory, which may hold passwords, out of the reports and dumps that the
// system makes of a crash.
void KeepMemoryOutOfCrashReports();
