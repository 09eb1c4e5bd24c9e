// Security descriptors as text.
#pragma once

#include <winnt.h>

#define SDDL_REVISION_1 1

extern "C" {
// Makes a descriptor from its text, in memory that the caller gives back with LocalFree. What is
// supported is the list that POSIX has without being told, and no other:
// "D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;BA)", everything for the owner, the system and
// administrators and nothing for others.
WINAPI_EXPORT BOOL WINAPI ConvertStringSecurityDescriptorToSecurityDescriptorW(
    LPCWSTR StringSecurityDescriptor, DWORD StringSDRevision,
    PSECURITY_DESCRIPTOR* SecurityDescriptor, PULONG SecurityDescriptorSize);
}
