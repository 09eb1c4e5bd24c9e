// The feature whose settings a plug-in carries. The plug-ins differ in nothing else: each is linked
// with the description of its own, which the build writes down.
#pragma once

#include <windows.h>

struct Feature {
    const char* element;    // its name in a file, below the root
    const WCHAR* key;       // the path of its key in HKEY_LOCAL_MACHINE
    const char* name;       // what it is called
    const WCHAR* sections;  // subkeys that stand as elements of their own name, separated by
                            // blanks and with "/" between levels
};

extern const Feature kFeature;
