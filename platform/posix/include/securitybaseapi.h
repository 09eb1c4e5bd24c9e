// Security descriptors.
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
}
