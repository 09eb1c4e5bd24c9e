// Where the client keeps what belongs to the machine.
#pragma once

#include "common/text.h"

namespace utilsdll {

// "<common application data>\Sentrel", which is made where it is missing and verified where not
// (common/client_folder.h); empty when there is none, or one that somebody else made.
WString DataFolder();

// A folder below it, likewise.
WString DataSubfolder(const WCHAR* name);

}  // namespace utilsdll
