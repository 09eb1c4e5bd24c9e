// What security attributes ask for.
#pragma once

#include <minwinbase.h>
#include <sys/types.h>

namespace platform {

// Permissions of a new object's file: everyone's when the attributes carry a present null access
// list, else its owner's alone.
mode_t ModeOfNewFile(const SECURITY_ATTRIBUTES* attributes);

}  // namespace platform
