// The bypasses of the client's file-protection components. A component knows that it is to stand
// back while the event of its name exists, which is as long as a process holds it. The events are
// for administrators and the system alone, to make and to look at; one of another owner is no
// bypass.
#include "client/utilsdll/bypass.h"

#include <atomic>

#include "client/include/utilsdll.h"
#include "common/handles.h"
#include "common/security.h"

namespace utilsdll {
namespace {

constexpr const WCHAR* kLogComponent = TEXT("utilsdll");
constexpr const WCHAR* kNotHeld = TEXT("%s cannot be made, or belongs to another account");

class Bypass {
  public:
    explicit constexpr Bypass(const WCHAR* name) : name_(name) {}

    HANDLE Hold() {
        AccessList access(kAdministratorsAlone);
        if (!IsAdministrator() || access.get() == nullptr) return INVALID_HANDLE_VALUE;
        UniqueHandle event(CreateEventW(access.get(), TRUE, FALSE, name_));
        // Other accounts can be first to make an object of this name.
        if (!event || !IsOwnedByClient(event.get(), SE_KERNEL_OBJECT)) {
            TellRefusal();
            return INVALID_HANDLE_VALUE;
        }
        held_ = event.get();
        return event.release();
    }
    // The caller closes the handle: one that can no longer be waited for is gone. Nobody sets the
    // event, so one that is set is something else in its place.
    bool IsHeld() const {
        const HANDLE event = held_;
        return event != nullptr && WaitForSingleObject(event, 0) == WAIT_TIMEOUT;
    }

  private:
    void TellRefusal() const {
        const SN_LOG_HANDLE log = log_initialize(kLogComponent);
        log_error_fmt(log, kNotHeld, name_);
        log_deinitialize(log);
    }

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
