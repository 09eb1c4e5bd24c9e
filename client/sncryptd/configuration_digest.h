// The client's configuration in 32 bytes.
#pragma once

#include <windows.h>

#include <vector>

// SHA-256 over every key and value below the product key of the machine, as they are stored, but
// for the keys that hold the client's own state. Equal digests are equal settings. Empty when the
// configuration cannot be read.
std::vector<BYTE> ConfigurationDigest();
