// Names and markers of configuration files that the tool, the plug-ins and the utility library
// share.
#pragma once

#include <string_view>

// The root element of every configuration file.
#define SENTREL_ROOT_ELEMENT "sentrel_configuration"
inline constexpr const char* kRootElement = SENTREL_ROOT_ELEMENT;

// In front of an encrypted registry string: upper-case hexadecimal of the ciphertext follows.
inline constexpr std::string_view kEncryptedValueMarker = "EncX ";

// In front of a file that is encrypted with a password; it may be missing.
inline constexpr std::string_view kEncryptedFileMarker = "Enc ";
