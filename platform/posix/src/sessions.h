// Logon sessions. A machine whose folder has a folder "sessions" keeps them there, a file for each,
// named by the session's number, whose first line names the logged-on user (account name or
// number); a process belongs to the lowest session of its user. On a machine without that folder a
// process belongs to the session that XDG_SESSION_ID in its environment tells. All other processes
// belong to session 0, the services' own.
#pragma once

#include <minwindef.h>

#include <map>
#include <optional>

#include "process_info.h"

namespace platform {

class SessionTable {
  public:
    // Reads what stands in the machine's folder now.
    SessionTable();

    bool Exists(DWORD session) const { return users_.contains(session); }
    // Nothing when nobody, or an account that the system does not know, is logged on.
    std::optional<uid_t> UserOf(DWORD session) const;
    DWORD SessionOf(const ProcessInfo& process) const;

  private:
    bool kept_ = false;  // the machine keeps its sessions in files
    std::map<DWORD, std::optional<uid_t>> users_;
};

}  // namespace platform
