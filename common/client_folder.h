// Folders and files that the client keeps for all accounts of the machine, in places where an
// ordinary account could have made its own first: the client's logs, the machine's secret.
#pragma once

#include "common/handles.h"
#include "common/text.h"

// Makes a folder of the client in an existing one, or verifies the one that is there. True when it
// is a folder and no link, and belongs to the system, to the administrators or to the process's own
// account if that is an administrator's. Ordinary accounts may list and pass through it; they
// cannot make, rename or delete anything in it. Only administrators make it, and each of them gives
// an existing one that access list again.
bool PrepareClientFolder(const WString& path);

// Opens a file in such a folder, or makes it where `disposition`, CreateFileW's, says so. It gets
// the access list `list` (common/security.h), an existing one whenever the caller may change it.
// Others may read, write and delete it meanwhile. None, with the last error set, when it cannot be
// opened, and with ERROR_ACCESS_DENIED when it is a link or a folder, has a second name or belongs
// to an account whose folder would be refused.
UniqueHandle OpenClientFile(const WString& path, DWORD access, DWORD disposition,
                            const WCHAR* list);
