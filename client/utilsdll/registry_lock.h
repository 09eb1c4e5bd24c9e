// The registry lock: while it is set, this library writes nothing at or below
// "software\Verdane\Sentrel" of HKEY_LOCAL_MACHINE, except for a process that may pass it.
//
// The lock is the REG_DWORD value "registry_locked" of the key "SA_LOCK" below that key, nonzero
// for set, written past the lock itself. So the product key exists whenever the lock is set. It
// counts only while a lock password is set. What cannot be read counts as set.
//
// A process may pass the lock once cfg_sentrelmanager_cmp_pwd has confirmed the lock password to
// it, for as long as that password stays and it holds both bypasses of the file protection. An
// unlock by such a process is a lease: it is kept in the process alone and ends with it.
#pragma once

#include <windows.h>

namespace utilsdll {

// Whether the lock is set, as far as this process is concerned: with a lease it is not.
bool IsRegistryLocked();

// Sets the lock and ends this process's lease; false also when no lock password is set.
bool SetRegistryLock();
// Takes a lease where the process may pass the lock; otherwise clears it for every process.
bool UnsetRegistryLock();
// Clears it for every process.
bool ClearRegistryLock();

// Whether the lock lets this process write the client's settings. A lock that another process sets
// counts from the next tick of the system's clock on (16 ms at most).
bool MayWriteSettings();

// Whether the lock lets a value of the key be written. What counts is the key that the handle
// stands for, in whatever way it was opened.
bool MayWrite(HKEY key);

// Whether the lock lets the key be made; opening one that exists changes nothing and is allowed.
bool MayCreate(HKEY parent, const WCHAR* path);

}  // namespace utilsdll
