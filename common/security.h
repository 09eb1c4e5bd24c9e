// What accounts may do: access lists of new objects, owners of existing ones, groups of an account.
#pragma once

#include <windows.h>
// (after the types)
#include <aclapi.h>

// Security attributes with a null access-control list, valid while the object lives.
class EveryoneAccess {
  public:
    EveryoneAccess() {
        InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&descriptor_, TRUE, nullptr, FALSE);
    }
    EveryoneAccess(const EveryoneAccess&) = delete;
    EveryoneAccess& operator=(const EveryoneAccess&) = delete;

    SECURITY_ATTRIBUTES* get() { return &attributes_; }

  private:
    SECURITY_DESCRIPTOR descriptor_ = {};
    SECURITY_ATTRIBUTES attributes_ = {sizeof(SECURITY_ATTRIBUTES), &descriptor_, FALSE};
};

// Security attributes with an access list in the security descriptor definition language, such as
// those below, valid while the object lives. get() is null where they cannot be made: nothing may
// be made with them then.
class AccessList {
  public:
    explicit AccessList(const WCHAR* list);
    AccessList(const AccessList&) = delete;
    AccessList& operator=(const AccessList&) = delete;
    ~AccessList();

    SECURITY_ATTRIBUTES* get() {
        return attributes_.lpSecurityDescriptor == nullptr ? nullptr : &attributes_;
    }
    // Makes the list that of an opened file or folder, in place of its own and of what it inherits.
    // The handle has the right WRITE_DAC. False, with the last error set, when that fails.
    bool ApplyTo(HANDLE object) const;

  private:
    SECURITY_ATTRIBUTES attributes_ = {sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

// The owner, the system and administrators may do everything; nobody else anything...
inline constexpr const WCHAR* kOwnerAlone = TEXT("D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)");
// The same, of an object that belongs to the administrators, whoever of them makes it. Other
// accounts cannot make one with this owner.
inline constexpr const WCHAR* kAdministratorsAlone =
    TEXT("O:BAD:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)");
// ... but call the pipe. To make an instance of it takes a right that callers lack.
inline constexpr const WCHAR* kEveryoneCalls =
    TEXT("D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)(A;;0x12018b;;;AU)");
// The same, of a pipe that belongs to the administrators, whoever of them serves it. Other accounts
// cannot make an object with this owner.
inline constexpr const WCHAR* kServedByAdministrators =
    TEXT("O:BAD:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)(A;;0x12018b;;;AU)");
// ... but append to the file, and read nothing of it.
inline constexpr const WCHAR* kEveryoneAppends =
    TEXT("D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)(A;;0x120084;;;AU)");
// ... but list the folder and pass through it. What is made in it is kOwnerAlone's.
inline constexpr const WCHAR* kEveryoneLooks =
    TEXT("D:P(A;OICI;GA;;;OW)(A;OICI;GA;;;SY)(A;OICI;GA;;;BA)(A;;0x1200a9;;;AU)");
class OwnerAccess : public AccessList {
  public:
    OwnerAccess() : AccessList(kOwnerAlone) {}
};

// The rights that callers of a pipe ask for: GENERIC_WRITE would contain that to make an instance.
inline constexpr DWORD kPipeCallerRights = GENERIC_READ | FILE_WRITE_DATA | FILE_WRITE_ATTRIBUTES;

// True when a token's account belongs to the group; null stands for the account that the thread
// acts as. A token that is given is an impersonation token with the right TOKEN_QUERY.
bool IsMemberOf(WELL_KNOWN_SID_TYPE group, HANDLE token = nullptr);

// Whether the thread's account is an administrator's or the system.
bool IsAdministrator();

// Whether an opened object belongs to the system or to the administrators: a file or folder
// (SE_FILE_OBJECT), or the pipe at a client's end (SE_KERNEL_OBJECT), whose owner serves it. Other
// accounts cannot make such an object. The handle has the right READ_CONTROL.
bool IsOwnedByAdministrators(HANDLE object, SE_OBJECT_TYPE type);

// The same, or to the process's own account when that is an administrator's: on some systems what
// an administrator makes belongs to the account and not to the group.
bool IsOwnedByClient(HANDLE object, SE_OBJECT_TYPE type);

// Whether an opened file or folder belongs to the system, to the administrators or to the process's
// own account. The handle has the right READ_CONTROL.
bool IsOwnedByTrusted(HANDLE file);
