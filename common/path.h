// Paths in the target's own form.
#pragma once

#include "common/text.h"

// Characters of a path buffer with its terminator, and bytes of one in the ANSI code page.
inline constexpr DWORD kPathCapacity = MAX_PATH + 1;

// The separator between the folders of a path.
extern const WCHAR kPathSeparator;

// True when the path has 260 bytes at most in the ANSI code page, as the client's XML files have
// to.
bool FitsAnsiPath(WStringView path);

// `folder`, a separator unless the folder already ends with one, and `name`.
WString JoinPath(WStringView folder, WStringView name);

// The part of a path before its last separator (empty when it has none), and the part after it. A
// slash separates as a backslash does, on every target.
WString FolderOfPath(WStringView path);
WString FileNameOfPath(WStringView path);
