// What a module run is framed by when it imports: the check of the file and the removal of its
// comments before it; the user's settings and the outcome's report after it.
#pragma once

#include "app/services/user_context.h"
#include "common/secure_text.h"
#include "common/text.h"
#include "config/config_file.h"
#include "config/operations.h"

// Checks that the operation's file can be processed, as far as the operation asks for it, and
// removes the comments from it. False, with a log line and a notification, when it cannot.
bool BeginImport(ConfigFile& file, const Operation& operation, DWORD sessionId);

// Ends an ordinary import, and does nothing for any other operation: restores the settings of the
// session's user, deletes the file and tells the user interface how the import went.
void FinishImport(const WString& file, const Operation& operation, DWORD sessionId,
                  const SecureText& password, bool modulesSucceeded);
