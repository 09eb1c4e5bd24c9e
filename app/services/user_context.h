// The account that the tool works for: the user logged on to the session it serves.
#pragma once

#include <utility>

#include "common/text.h"

// The session that a run works for.
struct SessionId {
    explicit SessionId(WString given)
        : text(std::move(given)), number(static_cast<DWORD>(LeadingNumber(text))) {}

    WString text;  // as it was given; what plug-ins receive
    DWORD number;  // its leading decimal number, 0 when there is none
};

// Makes the calling thread act as the user of a session: with the session's own token, else with
// that of the first explorer process that runs in it. Nonzero on success; the caller then calls
// RevertToSelf when it is done. On failure the thread stays in the tool's own context.
BOOL ImpersonateSessionUser(DWORD sessionId);

// The id of the process that created this one, which may have ended since; 0 when it cannot be
// found.
DWORD GetParentProcessId();

// Acts as the session's user while it lives, as far as the system allows it. Contexts do not nest:
// an inner RevertToSelf ends the outer one, too.
class SessionUserContext {
  public:
    explicit SessionUserContext(DWORD sessionId) : active_(ImpersonateSessionUser(sessionId)) {}
    SessionUserContext(const SessionUserContext&) = delete;
    SessionUserContext& operator=(const SessionUserContext&) = delete;
    ~SessionUserContext() {
        if (active_) RevertToSelf();
    }

  private:
    BOOL active_;
};
