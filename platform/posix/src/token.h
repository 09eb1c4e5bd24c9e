// Access tokens: an account, and the process whose token it is.
#pragma once

#include "handles.h"
#include "thread_identity.h"

namespace platform {

class Token final : public GrantedObject {
  public:
    // `process` is 0 for a token that belongs to no process.
    Token(Identity account, pid_t process, DWORD access);

    const Identity& Account() const { return account_; }
    pid_t ProcessId() const { return process_; }

  private:
    const Identity account_;
    const pid_t process_;
};

}  // namespace platform
