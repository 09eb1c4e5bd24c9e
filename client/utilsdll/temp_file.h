// Temporary files of a run, out of reach for every account that they are not meant for.
#pragma once

#include "common/text.h"

namespace utilsdll {

// Makes a new empty file in a folder of this process's own below `folder`, which only the process's
// account may list or change, and returns its path; empty on failure. The process's account owns
// the file. Where the calling thread impersonates another account, that one may pass through the
// folder, and read and write the file's data.
//
// The folder goes at the process's end at the latest; whoever deletes its last file may remove it
// before. Folders of processes that ended without, found below `folder`, are removed with their
// files.
WString MakeTempFile(const WString& folder, const WString& prefix);

}  // namespace utilsdll
