// What this process holds of the bypasses of the client's file protection.
#pragma once

namespace utilsdll {

// True while the handles that this process got last from bBypassFsfilter and bBypassGuardlet are
// both open.
bool HoldsBypasses();

}  // namespace utilsdll
