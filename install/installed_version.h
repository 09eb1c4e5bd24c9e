// The version of the installed client, from the Windows Installer's database.
#pragma once

#include <cstdint>

// Finds the client through its upgrade codes and splits its "VersionString" into four numbers; a
// part that the text lacks is 0. True when a version was found and its major number is not 0. Null
// outputs are skipped; all outputs stay as they were when no version text was found.
bool ReadInstalledVersion(std::int32_t* major, std::int32_t* minor, std::int32_t* build,
                          std::int32_t* revision);
