// The bypasses of the client's file-protection components. A component knows that it is to stand
// back while the event of its name exists, which is as long as a process holds it. The events are
// for administrators and the system alone, to make and to look at.
#include "client/utilsdll/bypass.h"

#include <atomic>

#include "client/include/utilsdll.h"
#include "common/security.h"

namespace utilsdll {
namespace {

class Bypass {
  public:
    explicit constexpr Bypass(const WCHAR* name) : name_(name) {}

    HANDLE Hold() {
        OwnerAccess ownerAlone;
        const HANDLE event = IsAdministrator() && ownerAlone.get() != nullptr
                                 ? CreateEventW(ownerAlone.get(), TRUE, FALSE, name_)
                                 : nullptr;
        if (event == nullptr) return INVALID_HANDLE_VALUE;
        held_ = event;
        return event;
    }
    // The caller closes the handle: one that can no longer be waited for is gone. Nobody sets the
    // event, so one that is set is something else in its place.
    bool IsHeld() const {
        const HANDLE event = held_;
        return event != nullptr && WaitForSingleObject(event, 0) == WAIT_TIMEOUT;
    }

  private:
    const WCHAR* name_;
    std::atomic<HANDLE> held_ = nullptr;
};

Bypass fileSystemFilter(TEXT("Global\\SN_BYPASS_FSFILTER"));
Bypass guardlet(TEXT("Global\\SN_BYPASS_GUARDLET"));

}  // namespace

bool HoldsBypasses() {
    return fileSystemFilter.IsHeld() && guardlet.IsHeld();
}

}  // namespace utilsdll

extern "C" HANDLE bBypassFsfilter() {
    return utilsdll::fileSystemFilter.Hold();
}

extern "C" HANDLE bBypassGuardlet() {
    return utilsdll::guardlet.Hold();
}
