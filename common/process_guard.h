// What the system is asked to keep away from the process and its memory.
#pragma once

// Keeps the process's memory, which may hold passwords, out of the reports and dumps that the
// system makes of a crash.
void KeepMemoryOutOfCrashReports();

// For a process with administrator rights: folders that an ordinary account turned into links to
// other places are not followed any more. Windows 11 and Server 2022 know of it; earlier ones go on
// following them.
void RefuseLinksOfOrdinaryAccounts();
