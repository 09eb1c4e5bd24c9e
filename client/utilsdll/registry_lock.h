// The registry lock: while it is set, this library writes nothing at or below
// "software\Verdane\Sentrel" of HKEY_LOCAL_MACHINE.
//
// The lock is the REG_DWORD value "registry_locked" of the key "SA_LOCK" below that key, nonzero
// for set, written past the lock itself. So the product key exists whenever the lock is set. A
// state that cannot be read counts as set.
#pragma once

#include <windows.h>

namespace utilsdll {

bool IsRegistryLocked();
bool SetRegistryLock(bool lock);

// Whether the lock lets a value of the key be written. What counts is the key that the handle
// stands for, in whatever way it was opened.
bool MayWrite(HKEY key);

// Whether the lock lets the key be made; opening one that exists changes nothing and is allowed.
bool MayCreate(HKEY parent, const WCHAR* path);

}  // namespace utilsdll
