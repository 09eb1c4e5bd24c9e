// The languages of the calling thread.
#pragma once

#include <minwindef.h>

#include <vector>

namespace platform {

// The languages in which the thread would have a resource, the one that it prefers first.
std::vector<LANGID> ThreadLanguages();

}  // namespace platform
