// The copies of the machine that restores leave behind: the way back.
#pragma once

#include "admin/report.h"
#include "common/secure_text.h"

// Writes an encrypted backup to "<common application data>\Sentrel\safety" under the host's name
// and the time. Its maker, the system and administrators alone can read it. The path; throws
// Failure when it cannot be written.
WString WriteSafetyCopy(const SecureBytes& encrypted);
