// The umbrella header of the Windows SDK, as far as this client needs it. Each header below is one
// family of calls; platform/posix/src has one source for each family.
#pragma once

#include <minwindef.h>
#include <winnt.h>
// (after the types)
#include <consoleapi.h>
#include <errhandlingapi.h>
#include <fileapi.h>
#include <handleapi.h>
#include <ioapiset.h>
#include <libloaderapi.h>
#include <memoryapi.h>
#include <minwinbase.h>
#include <namedpipeapi.h>
#include <processenv.h>
#include <processthreadsapi.h>
#include <securitybaseapi.h>
#include <stringapiset.h>
#include <synchapi.h>
#include <sysinfoapi.h>
#include <winbase.h>
#include <wincrypt.h>
#include <winerror.h>
#include <winnls.h>
#include <winreg.h>
#include <winsvc.h>
#include <winuser.h>
