// The account that the calling thread acts as towards the file system. Impersonation changes it for
// that thread alone: its file-system user and group and its supplementary groups, and with a user
// other than root also the rights to pass over file permissions.
#pragma once

#include <sys/types.h>

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

// Ends the impersonation, if there is one. False, with ERROR_ACCESS_DENIED, when the system does
// not let the thread return.
bool StopImpersonating();

// While it lives the thread is the process again: for files of the machine that belong to no user.
class ActAsProcess {
  public:
    ActAsProcess();
    ActAsProcess(const ActAsProcess&) = delete;
    ActAsProcess& operator=(const ActAsProcess&) = delete;
    ~ActAsProcess();

  private:
    bool wasImpersonating_;
    Identity impersonated_;
};

}  // namespace platform
