// Plain working copies of configuration files, whatever form the file is stored in:
//   plain               it begins with "<?xml version=" or with "<sentrel_configuration>"
//   password-encrypted  not plain, and a password is given: optionally the marker "Enc ", then
//                       the ciphertext of the document
//   protected           not plain, and no password is given: protected for the machine or the user
//                       (protect/data_protect.h)
#pragma once

#include "common/secure_text.h"
#include "common/text.h"

// Makes a plain copy of `source` in the temporary folder, readable by its user alone, and returns
// its path; the caller deletes it. The source is read as the session's user when the run
// impersonates. Empty on failure; a file that no password opens is also reported to the user
// interface.
WString PrepareConfigCopy(const WString& source, DWORD sessionId, const SecureText& password);

// Deletes a working copy, as the session's user or else as the tool's own account.
void DeleteConfigCopy(const WString& path, DWORD sessionId);
