#include "thread_identity.h"

#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>

#include "last_error.h"

namespace platform {
namespace {

// Who the thread was before it began to impersonate.
thread_local std::optional<Identity> ownIdentity;

// The account that the thread identifies but does not act as.
thread_local std::optional<Identity> identified;

// An impossible id changes nothing, and the call reports what stands.
constexpr auto kNobody = static_cast<uid_t>(-1);
uid_t FileSystemUser() {
    return static_cast<uid_t>(setfsuid(kNobody));
}
gid_t FileSystemGroup() {
    return static_cast<gid_t>(setfsgid(kNobody));
}

std::vector<gid_t> ThreadGroups() {
    std::vector<gid_t> groups;
    int count = getgroups(0, nullptr);
    while (count > 0) {
        groups.resize(static_cast<std::size_t>(count));
        const int got = getgroups(count, groups.data());
        if (got >= 0) {
            groups.resize(static_cast<std::size_t>(got));
            break;
        }
        count = getgroups(0, nullptr);  // it grew meanwhile
    }
    std::sort(groups.begin(), groups.end());
    return groups;
}

Identity ThreadIdentity() {
    return {FileSystemUser(), FileSystemGroup(), ThreadGroups()};
}

// The C library's setgroups() changes every thread of the process; the system call only this one.
bool SetThreadGroups(const std::vector<gid_t>& groups) {
    return syscall(SYS_setgroups, groups.size(), groups.data()) == 0;
}

// Groups first: the right to change them may go with the user.
bool BecomeIdentity(const Identity& identity) {
    const bool mayStay = identity.user == FileSystemUser();
    if (identity.groups != ThreadGroups() && !SetThreadGroups(identity.groups) && !mayStay) {
        return false;
    }
    setfsgid(identity.group);
    setfsuid(identity.user);
    return FileSystemUser() == identity.user && (FileSystemGroup() == identity.group || mayStay);
}

}  // namespace

uid_t ThreadAccount() {
    return FileSystemUser();
}

Identity ProcessIdentity() {
    return ownIdentity ? *ownIdentity : ThreadIdentity();
}

Identity IdentityOfUser(uid_t user) {
    Identity identity{user, user, {}};
    std::array<char, 4096> text{};
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(user, &entry, text.data(), text.size(), &found) == 0 && found != nullptr) {
        identity.group = entry.pw_gid;
        int count = 64;
        do {
            identity.groups.resize(static_cast<std::size_t>(count));
        } while (getgrouplist(entry.pw_name, entry.pw_gid, identity.groups.data(), &count) < 0);
        identity.groups.resize(static_cast<std::size_t>(count));
    } else {
        identity.groups = {identity.group};
    }
    std::sort(identity.groups.begin(), identity.groups.end());
    return identity;
}

bool MayActAsAnyone() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> rights{};
    return syscall(SYS_capget, &header, rights.data()) == 0 &&
           (rights[0].effective & (1U << CAP_SETUID)) != 0;
}

bool Impersonate(const Identity& identity) {
    const Identity before = ThreadIdentity();
    if (!BecomeIdentity(identity)) {
        if (!BecomeIdentity(before)) std::abort();  // it would run with a mixture of two accounts
        return Fail(ERROR_PRIVILEGE_NOT_HELD);
    }
    if (!ownIdentity) ownIdentity = before;
    return true;
}

void Identify(Identity identity) {
    identified = std::move(identity);
}

bool IsIdentifying() {
    return identified.has_value();
}

std::optional<Identity> ForeignIdentity() {
    if (identified) return identified;
    return ownIdentity ? std::optional(ThreadIdentity()) : std::nullopt;
}

bool StopImpersonating() {
    identified.reset();
    if (!ownIdentity) return true;
    if (!BecomeIdentity(*ownIdentity)) return Fail(ERROR_ACCESS_DENIED);
    ownIdentity.reset();
    return true;
}

ActAs::ActAs(const Identity& identity)
    : before_(ThreadIdentity()), acts_(identity == before_ || BecomeIdentity(identity)) {
    if (!acts_) Fail(ERROR_PRIVILEGE_NOT_HELD);
}

ActAs::~ActAs() {
    if (!BecomeIdentity(before_)) std::abort();  // it would run with a mixture of two accounts
}

}  // namespace platform
