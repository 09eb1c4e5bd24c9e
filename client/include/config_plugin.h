// Contract of a configuration plug-in library: the functions that it exports by name, with C
// linkage. A library needs only the exports that the operations sent to it use.
//
// All arguments are NUL-terminated wide text owned by the caller and valid during the call alone.
// `file` names the configuration file on disk, which the plug-in loads, changes under the root
// element and saves itself: for an export a file that already holds the header, for an import the
// plain working copy. `sessionId` is decimal text; `password` is the run's file password, possibly
// empty. Each returns 0 on success.
#pragma once

#include <windows.h>

extern "C" {

typedef int(WINAPI* ImportFromXmlFunction)(const WCHAR* file, const WCHAR* sessionId,
                                           const WCHAR* password);
typedef int(WINAPI* ExportToXmlFunction)(const WCHAR* file, const WCHAR* sessionId,
                                         const WCHAR* password);
typedef int(WINAPI* AdvancedOpFunction)(const WCHAR* file, const WCHAR* operation,
                                        const WCHAR* sessionId, const WCHAR* password);
}
