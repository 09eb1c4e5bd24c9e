// The folder that is "the machine": registry hives, keys, run-time objects, logs.
#pragma once

#include <sys/types.h>

#include <string>

namespace platform {

// The machine's folder: the environment variable SENTREL_ENDPOINT, else "sentrel" below the XDG
// state folder. Decided once per process. Absolute, without a trailing slash.
const std::string& EndpointFolder();

// Whether the machine is the account's: root, and the owner of the machine's folder.
bool OwnsMachine(uid_t account);

// Who may make files in a folder of the machine: its owner alone (others may read), or every
// account, each keeping what it made (a sticky folder, as the temporary folder is).
enum class FolderUse { kOwnerWrites, kEveryoneWrites };

// The path of a folder below the machine's folder, made with its parents when it is missing; empty,
// with the last error set, when it cannot be made, and with ERROR_ACCESS_DENIED when it or one
// above it is not the machine's: a link, or made by an account that does not own the machine.
std::string EndpointSubfolder(const char* name, FolderUse use);

// The private folder of an account below the machine's folder ("users/<uid>", mode 0700), made
// when it is missing. Empty, with ERROR_ACCESS_DENIED, when it belongs to another account or others
// may enter it.
std::string EndpointUserFolder(uid_t user);

}  // namespace platform
