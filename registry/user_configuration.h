// The user_configuration section: the session user's own settings, carried in the configuration
// file.
//
// The section holds one element `value` for each registry value below the user's product key:
//   key   path of its key below the product key      name  the value's name
//   type  registry type, decimal
//   data  REG_SZ: the text; REG_DWORD: signed decimal; REG_MULTI_SZ: hexadecimal of the stored
//   bytes;
//         absent for any other type
//   enc   "1" for a string that the registry held protected; its data is in the "EncX " form
// Texts are UTF-8. The per-gateway VPN keys (SA_UI\VPN-<IPv4 address>) contribute no values.
#pragma once

#include <tinyxml.h>

#include "common/secure_text.h"
#include "common/text.h"

inline constexpr const char* kUserConfigurationElement = "user_configuration";

// Replaces the section below `root` by a fresh one with the settings of the session's user, whose
// protected strings are encrypted with the password. The section is written even when it stays
// empty. Ends every impersonation of the calling thread.
void ExportUserConfiguration(TiXmlElement* root, const SecureText& password, DWORD sessionId);

// Writes the values of a file's section to the settings of the session's user, who must have a
// product key already; what the section does not name stays as it is. Every encrypted value is
// checked first: with a wrong password nothing is written. Reports nothing. Ends every
// impersonation of the calling thread.
void ImportUserConfiguration(const WString& file, const SecureText& password, DWORD sessionId);
