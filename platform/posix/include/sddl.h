// Security descriptors as text.
#pragma once

#include <winnt.h>

#define SDDL_REVISION_1 1

extern "C" {
// Makes a descriptor from its text, in memory that the caller gives back with LocalFree. What is
// supported is the list that POSIX has without being told, and what an account may do besides:
// "D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)", everything for the owner, the system and
// administrators and nothing for others, where each "A;;" may be "A;OICI;" for all that is made in
// a folder; and behind it at most one "(A;;0x<rights>;;;<account>)". Of such rights those to read
// and write data and to enter a folder count. They go to the account's own group, so members of
// that group have them, too; those of the account "AU", every authenticated user, go to all. The
// owner of a new object is the account that makes it, also where "O:BA" names the administrators.
WINAPI_EXPORT BOOL WINAPI ConvertStringSecurityDescriptorToSecurityDescriptorW(
    LPCWSTR StringSecurityDescriptor, DWORD StringSDRevision,
    PSECURITY_DESCRIPTOR* SecurityDescriptor, PULONG SecurityDescriptorSize);
// The text of a security identifier, in memory that the caller gives back with LocalFree.
WINAPI_EXPORT BOOL WINAPI ConvertSidToStringSidW(PSID Sid, LPWSTR* StringSid);
}
