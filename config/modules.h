// The feature modules of the client: which libraries keep their configuration, and how an operation
// reaches them.
#pragma once

#include <vector>

#include "common/secure_text.h"
#include "common/text.h"
#include "config/operations.h"

// The requested names in a module text: its pieces between spaces. Spaces in a row give no extra
// names; an empty text and a trailing space leave one empty name, which selects nothing.
std::vector<WString> SplitModuleText(const WString& text);

// What became of one module.
struct ModuleOutcome {
    const WCHAR* module;           // its name
    bool isLibraryFound = false;   // else: nothing was called
    bool isFunctionFound = false;  // the export that the operation calls; else: nothing was called
    int result = 0;                // the plug-in's
    bool hasFailed = false;        // the result is an error, and the operation examines it
};

// Hands `file` to the plug-in library of every selected module, in the order of the requested names
// and, within one, of the module table; "all" and "*" select every module, an unknown name none.
// Each library is loaded from the client's installation folder, called once and unloaded again.
// `operation` picks the export that is called. A library that cannot be loaded or lacks the export
// is passed over, with a line in the debug output or log.
std::vector<ModuleOutcome> RunModules(const WString& file, const std::vector<WString>& modules,
                                      const Operation& operation, const WString& sessionId,
                                      const SecureText& password);

// True when no plug-in reported an error that its operation examines.
bool HaveSucceeded(const std::vector<ModuleOutcome>& outcomes);
