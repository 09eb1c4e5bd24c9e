// The content of backup files in memory.
#pragma once

#include "common/secure_text.h"
#include "common/text.h"

// The whole file; throws Failure when it cannot be read.
SecureBytes ReadContentOf(const WString& path);

// The marker and the encrypted message of a document. Throws Failure when it cannot be encrypted.
SecureBytes EncryptContent(const SecureBytes& plain, const SecureText& password);
