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
// The account that questions about the thread's rights are about: the identified one, or its own.
uid_t AccountInQuestion();

// The account that the thread identifies or impersonates; nothing when it does neither.
std::optional<Identity> ForeignIdentity();

// Ends the impersonation and the identification, if there are any. False, with ERROR_ACCESS_DENIED,
// when the system does not let the thread return.
bool StopImpersonating();

// During its lifetime the thread acts as the process: for files of the machine that belong to no
// user.
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

// During its lifetime questions about the thread's rights are about that account.
class IdentifyFor {
  public:
    explicit IdentifyFor(const Identity& identity);
    IdentifyFor(const IdentifyFor&) = delete;
    IdentifyFor& operator=(const IdentifyFor&) = delete;
    ~IdentifyFor();

  private:
    std::optional<Identity> before_;
};

// During its lifetime the thread acts as the account in question, to see what that account may do.
// False when it cannot: ERROR_PRIVILEGE_NOT_HELD.
class ActAsAccountInQuestion {
  public:
    ActAsAccountInQuestion();
    ActAsAccountInQuestion(const ActAsAccountInQuestion&) = delete;
    ActAsAccountInQuestion& operator=(const ActAsAccountInQuestion&) = delete;
    ~ActAsAccountInQuestion();
    explicit operator bool() const { return acts_; }

  private:
    std::optional<Identity> before_;  // none: the thread is that account already
    bool acts_ = true;
};

}  // namespace platform
