// File calls of Microsoft's C library; they return 0, or -1 with errno set.
#pragma once

#include <minwindef.h>

extern "C" {
// Mode 0: does it exist? 2: may it be written? 4: may it be read? 6: both.
WINAPI_EXPORT int _waccess(const WCHAR* path, int mode);
WINAPI_EXPORT int _wunlink(const WCHAR* path);
}
