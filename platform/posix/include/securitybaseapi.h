// Security descriptors, tokens, impersonation.
#pragma once

#include <winnt.h>

extern "C" {
// Makes an empty descriptor in the caller's memory.
WINAPI_EXPORT BOOL WINAPI InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                                       DWORD dwRevision);
// A present null access list grants everything to everyone. Other lists are not supported.
WINAPI_EXPORT BOOL WINAPI SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR pSecurityDescriptor,
                                                    BOOL bDaclPresent, PACL pDacl,
                                                    BOOL bDaclDefaulted);
// Makes the descriptor's protected access list that of a file or folder, in place of its own. The
// handle has the right WRITE_DAC. Nothing else can be set.
WINAPI_EXPORT BOOL WINAPI SetKernelObjectSecurity(HANDLE Handle,
                                                  SECURITY_INFORMATION SecurityInformation,
                                                  PSECURITY_DESCRIPTOR SecurityDescriptor);

// TokenUser, TokenVirtualizationEnabled (a DWORD) and TokenElevation are known. A small buffer
// fails with ERROR_INSUFFICIENT_BUFFER and the size in *ReturnLength. The token needs TOKEN_QUERY.
//
// A process starts with virtualization on when the machine's folder holds a file "virtualization",
// else with it off. Nothing is redirected in either case; the state is there to be asked for,
// also by other processes.
WINAPI_EXPORT BOOL WINAPI GetTokenInformation(HANDLE TokenHandle,
                                              TOKEN_INFORMATION_CLASS TokenInformationClass,
                                              LPVOID TokenInformation, DWORD TokenInformationLength,
                                              PDWORD ReturnLength);
// TokenVirtualizationEnabled of the calling process's own token can be set, with the right
// TOKEN_ADJUST_DEFAULT.
WINAPI_EXPORT BOOL WINAPI SetTokenInformation(HANDLE TokenHandle,
                                              TOKEN_INFORMATION_CLASS TokenInformationClass,
                                              LPVOID TokenInformation,
                                              DWORD TokenInformationLength);

// Lets the calling thread, and no other, use files as the token's user: with that user's groups and
// without the process's own rights to pass over permissions. A thread that is started meanwhile
// begins as that user. The token needs TOKEN_QUERY and TOKEN_DUPLICATE (else ERROR_ACCESS_DENIED).
// A token of the own account always works; another one without the right to act for others fails
// with ERROR_PRIVILEGE_NOT_HELD and leaves the thread as it was.
WINAPI_EXPORT BOOL WINAPI ImpersonateLoggedOnUser(HANDLE hToken);
// Lets the thread be the process's own account again, also after ImpersonateNamedPipeClient; TRUE
// when it was that already, too.
WINAPI_EXPORT BOOL WINAPI RevertToSelf();

// A token of the same account that belongs to no process, for questions: with TOKEN_QUERY. The
// level is SecurityIdentification; the token needs TOKEN_DUPLICATE.
WINAPI_EXPORT BOOL WINAPI DuplicateToken(HANDLE ExistingTokenHandle,
                                         SECURITY_IMPERSONATION_LEVEL ImpersonationLevel,
                                         PHANDLE DuplicateTokenHandle);

// Writes the identifier of the system's account, of the administrators, of the guests or of the
// authenticated users; others are not supported. No domain is taken. *cbSid is the buffer's size on
// entry and the identifier's on return, also when the buffer is too small
// (ERROR_INSUFFICIENT_BUFFER).
WINAPI_EXPORT BOOL WINAPI CreateWellKnownSid(WELL_KNOWN_SID_TYPE WellKnownSidType, PSID DomainSid,
                                             PSID pSid, DWORD* cbSid);
WINAPI_EXPORT BOOL WINAPI IsWellKnownSid(PSID pSid, WELL_KNOWN_SID_TYPE WellKnownSidType);
WINAPI_EXPORT BOOL WINAPI EqualSid(PSID pSid1, PSID pSid2);
// The size of an identifier in bytes.
WINAPI_EXPORT DWORD WINAPI GetLengthSid(PSID pSid);
// Whether a token's account is, or belongs to, one of those four. The token belongs to no process
// (else ERROR_NO_IMPERSONATION_TOKEN) and needs TOKEN_QUERY; null stands for the calling thread's.
// Root is the system's account. An administrator is who may write the machine's registry. The
// guests are the accounts "guest" and "nobody"; all others are authenticated users. Whether
// another account is an administrator only a process of root can tell (else FALSE with
// ERROR_PRIVILEGE_NOT_HELD). A thread that only identifies a client cannot use that token without
// opening it: null fails with ERROR_BAD_IMPERSONATION_LEVEL.
WINAPI_EXPORT BOOL WINAPI CheckTokenMembership(HANDLE TokenHandle, PSID SidToCheck, BOOL* IsMember);
}
