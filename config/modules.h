// The feature modules of the client: which libraries keep their configuration, and how an operation
// reaches them.
#pragma once

#include <vector>

#include "common/secure_text.h"
#include "common/text.h"

// The requested names in a module text: its pieces between spaces. Spaces in a row give no extra
// names; an empty text and a trailing space leave one empty name, which selects nothing.
std::vector<WString> SplitModuleText(const WString& text);

// Hands `file` to the plug-in library of every selected module, in the order of the requested names
// and, within one, of the module table; "all" and "*" select every module, an unknown name none.
// Each library is loaded from the client's installation folder, called once and unloaded again.
// `operation` picks the export that is called. True when no plug-in reported an error; a library
// that cannot be loaded or lacks the export is passed over, with a line in the debug output or log.
bool RunModules(const WString& file, const std::vector<WString>& modules, const WString& operation,
                const WString& sessionId, const SecureText& password);
