// What a module run is framed by when it exports: the header before it; the user's settings and the
// removal of comments after it.
#pragma once

#include "app/services/user_context.h"
#include "common/secure_text.h"
#include "common/text.h"
#include "config/operations.h"

// Writes the header into the skeleton at `file`. False, with a log line, when that fails.
bool BeginExport(const WString& file, const SecureText& password);

// Adds the settings of the session's user when the run includes them and no plug-in failed
// (`modulesSucceeded`), and removes the comments when the operation asks for it. False when a
// plug-in or one of these steps failed.
bool FinishExport(const WString& file, const Operation& operation, DWORD sessionId,
                  const SecureText& password, bool modulesSucceeded);
