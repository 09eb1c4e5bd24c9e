// Who owns an opened object.
#pragma once

#include <winnt.h>

enum SE_OBJECT_TYPE { SE_FILE_OBJECT = 1, SE_KERNEL_OBJECT = 6 };

extern "C" {
// The owner of a file or folder, or of a pipe, in memory that the caller gives back by
// LocalFree(*ppSecurityDescriptor). A pipe's owner is the account that serves it. Root is told as
// the system, the owner of the machine's folder as the administrators. Nothing but
// OWNER_SECURITY_INFORMATION is supported; the other pointers are null. Returns ERROR_SUCCESS or
// what went wrong.
WINAPI_EXPORT DWORD WINAPI GetSecurityInfo(HANDLE handle, SE_OBJECT_TYPE ObjectType,
                                           SECURITY_INFORMATION SecurityInfo, PSID* ppsidOwner,
                                           PSID* ppsidGroup, PACL* ppDacl, PACL* ppSacl,
                                           PSECURITY_DESCRIPTOR* ppSecurityDescriptor);
}
