// Events of operations that make progress only while a thread waits for them.
#pragma once

#include <memory>

#include "handles.h"

namespace platform {

// Until the event is set, a wait for it is first a wait for the source. Of no effect on a handle
// that is no event's.
void SetSourceOfEvent(HANDLE event, std::weak_ptr<KernelObject> source);

}  // namespace platform
