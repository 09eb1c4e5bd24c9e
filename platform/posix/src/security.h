// What security attributes ask for.
#pragma once

#include <minwinbase.h>
#include <sys/types.h>

#include <optional>

namespace platform {

// Permissions of a new object's file: everyone's when the attributes carry a present null access
// list, those of the list that was made from a text, else its owner's alone.
mode_t ModeOfNewFile(const SECURITY_ATTRIBUTES* attributes);

// What an access list allows an account besides the owner: permissions of the account's group.
struct GroupAccess {
    gid_t group;
    mode_t mode;  // of the three bits for a group
};
std::optional<GroupAccess> GroupAccessOf(const SECURITY_ATTRIBUTES* attributes);

// Gives a file or folder just made those permissions besides its owner's `mode`. False, with errno
// set, when that cannot be.
bool ApplyAccess(int descriptor, mode_t mode, const std::optional<GroupAccess>& group);

// Gives a file or folder the permissions that the attributes ask for. False, with errno set, when
// that cannot be.
bool ApplyAccess(int descriptor, const SECURITY_ATTRIBUTES& attributes);

}  // namespace platform
