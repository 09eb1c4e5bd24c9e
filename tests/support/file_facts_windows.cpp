#include "tests/support/file_facts.h"

#include <windows.h>
// (after the types)
#include <aclapi.h>

#include <algorithm>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr WELL_KNOWN_SID_TYPE kEveryone[] = {WinWorldSid, WinAuthenticatedUserSid,
                                             WinBuiltinUsersSid};

// True when the file's access list gives everyone all of the rights.
bool HasEveryone(const fs::path& path, ACCESS_MASK rights) {
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                              nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS) {
        throw std::runtime_error("no access list: " + path.string());
    }
    ACCESS_MASK granted = list == nullptr ? rights : 0;
    void* entry = nullptr;
    for (DWORD i = 0; list != nullptr && GetAce(list, i, &entry); ++i) {
        auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        if (allowed->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
            std::ranges::any_of(kEveryone, [allowed](WELL_KNOWN_SID_TYPE group) {
                return IsWellKnownSid(&allowed->SidStart, group);
            })) {
            granted |= allowed->Mask;
        }
    }
    LocalFree(descriptor);
    return (granted & rights) == rights;
}

}  // namespace

bool OnlyOwnerMayUse(const fs::path& path) {
    return !HasEveryone(path, FILE_READ_DATA) && !HasEveryone(path, FILE_WRITE_DATA);
}

bool EveryoneMayWrite(const fs::path& path) {
    return HasEveryone(path, FILE_READ_DATA | FILE_WRITE_DATA);
}

unsigned OwnerOf(const fs::path&) {
    throw std::logic_error("no accounts with numbers");
}
