// Where this library, or the program that this is a part of, was loaded from.
#pragma once

#include "common/text.h"

namespace utilsdll {

// Without a trailing separator; empty when it cannot be learnt.
WString OwnFolder();

}  // namespace utilsdll
