// Where the client keeps what belongs to the machine.
#pragma once

#include "common/text.h"

namespace utilsdll {

// "<common application data>\Sentrel", made when it is missing; empty when there is none.
WString DataFolder();

// A folder below it, likewise.
WString DataSubfolder(const WCHAR* name);

}  // namespace utilsdll
