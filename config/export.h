// The export: a backup of the client's configuration in one file.
#pragma once

#include "common/secure_text.h"
#include "common/text.h"

// Writes the configuration of the selected modules to `file`, which is replaced in one step when
// the backup is complete and left alone when the export stops before that. A password is required.
// The outcome is reported on the console, in the log and to the user interface.
void ExportConfiguration(const WString& moduleText, const WString& file, const WString& operation,
                         const WString& sessionId, const SecureText& password);
