// The account that the calling thread acts as towards the file system. Impersonation changes it for
// that thread alone: its file-system user and group and its supplementary groups, and with a user
// other than root also the rights to pass over file permissions.
#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

namespace platform {

struct Identity {
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;  // supplementary; sorted

    bool operator==(const Identity& other) const = default;
};

// The thread's own account: the impersonated one while it impersonates, else the process's.
uid_t ThreadAccount();

// Who the process is, whatever the calling thread impersonates.
Identity ProcessIdentity();

// The groups that the system's group list gives an account; an account that it does not know has
// the group of its own number.
Identity IdentityOfUser(uid_t user);

// Whether the calling thread may act as any account of the system.
bool MayActAsAnyone();

// Lets the calling thread act as `identity`. Its own account always works; where the process may
// not change groups, they stay. Another account without the right to: false, with
// ERROR_PRIVILEGE_NOT_HELD, and the thread stays as it was.
bool Impersonate(const Identity& identity);

// Lets the thread identify an account without acting as it; replaces an earlier one.
void Identify(Identity identity);
// Whether there is such an account.
bool IsIdentifying();

// The account that the thread identifies or impersonates; nothing when it does neither.
std::optional<Identity> ForeignIdentity();

// Ends the impersonation and the identification, if there are any. False, with ERROR_ACCESS_DENIED,
// when the system does not let the thread return.
bool StopImpersonating();

// During its lifetime the thread acts as an account, for instance to see what that may do.
class ActAs {
  public:
    explicit ActAs(const Identity& identity);
    ActAs(const ActAs&) = delete;
    ActAs& operator=(const ActAs&) = delete;
    ~ActAs();
    // False, with ERROR_PRIVILEGE_NOT_HELD, when it cannot.
    explicit operator bool() const { return acts_; }

  private:
    const Identity before_;
    const bool acts_;
};

// The same as the process: for files of the machine that belong to no user.
struct ActAsProcess : ActAs {
    ActAsProcess() : ActAs(ProcessIdentity()) {}
};

}  // namespace platform
