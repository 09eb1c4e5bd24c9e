// The bypasses of the client's file-protection components. A component knows that it is to stand
// back while the event of its name exists, which is as long as a process holds it.
#include "client/include/utilsdll.h"

namespace {

HANDLE HoldEvent(const WCHAR* name) {
    // Null access-control list: the component looks for the event from whatever account it runs as.
    SECURITY_DESCRIPTOR everyone;
    if (!InitializeSecurityDescriptor(&everyone, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&everyone, TRUE, nullptr, FALSE)) {
        return INVALID_HANDLE_VALUE;
    }
    SECURITY_ATTRIBUTES attributes{sizeof attributes, &everyone, FALSE};
    const HANDLE event = CreateEventW(&attributes, TRUE, FALSE, name);
    return event == nullptr ? INVALID_HANDLE_VALUE : event;
}

}  // namespace

extern "C" HANDLE bBypassFsfilter() {
    return HoldEvent(TEXT("Global\\SN_BYPASS_FSFILTER"));
}

extern "C" HANDLE bBypassGuardlet() {
    return HoldEvent(TEXT("Global\\SN_BYPASS_GUARDLET"));
}
