// Plain working copies of configuration files, whatever form the file is stored in:
//   plain               it begins with "<?xml version=" or with "<sentrel_configuration>"
//   password-encrypted  not plain, and a password is given: optionally the marker "Enc ", then
//                       the ciphertext of the document
//   protected           not plain, and no password is given: protected for the machine or the user
//                       (protect/data_protect.h)
#pragma once

#include "common/secure_text.h"
#include "common/text.h"
#include "config/temporary_file.h"

// A plain copy of a file in the temporary folder, which the tool's own account alone may use. The
// source is read as the session's user when the run impersonates, and must be a file on a disk of
// 2 GiB at most; what that user does to the temporary files meanwhile does not get into the copy.
// Deleted at the end, as the session's user or else as the tool's own account.
class WorkingCopy {
  public:
    // A file that no password opens is also reported to the user interface.
    WorkingCopy(const WString& source, DWORD sessionId, const SecureText& password);
    WorkingCopy(const WorkingCopy&) = delete;
    WorkingCopy& operator=(const WorkingCopy&) = delete;
    ~WorkingCopy();

    // Empty when the copy could not be made.
    const WString& Path() const { return copy_.Path(); }

  private:
    TemporaryFile copy_;
    DWORD sessionId_;
};
