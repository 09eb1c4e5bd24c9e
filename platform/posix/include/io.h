// File calls of Microsoft's C library; they return 0, or -1 with errno set.
#pragma once

#include <minwindef.h>

#include <cstdint>
#include <cstdio>

#define _O_TEXT 0x4000

extern "C" {
// Mode 0: does it exist? 2: may it be written? 4: may it be read? 6: both.
WINAPI_EXPORT int _waccess(const WCHAR* path, int mode);
WINAPI_EXPORT int _wunlink(const WCHAR* path);

// Turns a file's handle into a descriptor, which closes the file in its place. Of the flags _O_TEXT
// is known; a text file has no form of its own here.
WINAPI_EXPORT int _open_osfhandle(intptr_t osfhandle, int flags);
WINAPI_EXPORT int _close(int fd);
// A stream on a descriptor, which fclose closes with it; null with errno set.
WINAPI_EXPORT std::FILE* _fdopen(int fd, const char* mode);
}
