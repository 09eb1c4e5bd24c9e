// Constants and records of the Windows SDK that belong to the system rather than to one family of
// calls: wide literals, access rights, registry types, security descriptors, tokens.
#pragma once

#include <minwindef.h>

#define TEXT_WIDE_LITERAL(quote) u##quote
#define TEXT(quote) TEXT_WIDE_LITERAL(quote)

// Standard and generic access rights.
#define DELETE 0x00010000L
#define READ_CONTROL 0x00020000L
#define WRITE_DAC 0x00040000L
#define WRITE_OWNER 0x00080000L
#define SYNCHRONIZE 0x00100000L
#define STANDARD_RIGHTS_REQUIRED 0x000F0000L
#define STANDARD_RIGHTS_READ READ_CONTROL
#define STANDARD_RIGHTS_WRITE READ_CONTROL
#define STANDARD_RIGHTS_ALL 0x001F0000L
#define MAXIMUM_ALLOWED 0x02000000L
#define GENERIC_READ 0x80000000UL
#define GENERIC_WRITE 0x40000000UL
#define GENERIC_EXECUTE 0x20000000UL
#define GENERIC_ALL 0x10000000UL

// Synchronisation objects.
#define EVENT_MODIFY_STATE 0x0002
#define EVENT_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | 0x3)
#define MUTANT_QUERY_STATE 0x0001
#define MUTEX_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | SYNCHRONIZE | MUTANT_QUERY_STATE)

// Files.
#define FILE_READ_DATA 0x0001
#define FILE_WRITE_DATA 0x0002
#define FILE_APPEND_DATA 0x0004
#define FILE_TRAVERSE 0x0020
#define FILE_READ_ATTRIBUTES 0x0080
#define FILE_WRITE_ATTRIBUTES 0x0100
#define FILE_SHARE_READ 0x00000001
#define FILE_SHARE_WRITE 0x00000002
#define FILE_SHARE_DELETE 0x00000004
#define FILE_ATTRIBUTE_READONLY 0x00000001
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010
#define FILE_ATTRIBUTE_DEVICE 0x00000040
#define FILE_ATTRIBUTE_NORMAL 0x00000080
#define FILE_ATTRIBUTE_TEMPORARY 0x00000100
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400
#define FILE_ATTRIBUTE_ENCRYPTED 0x00004000  // no file of this system has it

// Memory protection of mappings.
#define PAGE_READONLY 0x02
#define PAGE_READWRITE 0x04

// Registry.
#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_NOTIFY 0x0010
#define KEY_CREATE_LINK 0x0020
#define KEY_WOW64_64KEY 0x0100
#define KEY_WOW64_32KEY 0x0200
#define KEY_READ \
    ((STANDARD_RIGHTS_READ | KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY) & ~SYNCHRONIZE)
#define KEY_WRITE ((STANDARD_RIGHTS_WRITE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY) & ~SYNCHRONIZE)
#define KEY_ALL_ACCESS                                                             \
    ((STANDARD_RIGHTS_ALL | KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY | \
      KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY | KEY_CREATE_LINK) &                     \
     ~SYNCHRONIZE)
#define REG_OPTION_NON_VOLATILE 0x00000000L
#define REG_CREATED_NEW_KEY 0x00000001L
#define REG_OPENED_EXISTING_KEY 0x00000002L
#define REG_NONE 0UL
#define REG_SZ 1UL
#define REG_EXPAND_SZ 2UL
#define REG_BINARY 3UL
#define REG_DWORD 4UL
#define REG_DWORD_BIG_ENDIAN 5UL
#define REG_LINK 6UL
#define REG_MULTI_SZ 7UL
#define REG_RESOURCE_LIST 8UL
#define REG_FULL_RESOURCE_DESCRIPTOR 9UL
#define REG_RESOURCE_REQUIREMENTS_LIST 10UL
#define REG_QWORD 11UL

// Languages.
#define PRIMARYLANGID(lgid) (static_cast<WORD>((lgid)&0x3ff))

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};
using PLARGE_INTEGER = LARGE_INTEGER*;

// Security descriptors: absent and null access-control lists are told apart, as Windows does.
#define SECURITY_DESCRIPTOR_REVISION 1
struct ACL;
using PACL = ACL*;
struct SECURITY_DESCRIPTOR {
    BYTE Revision;
    BYTE Sbz1;
    WORD Control;
    PVOID Owner;
    PVOID Group;
    PACL Sacl;
    PACL Dacl;
};
using PSECURITY_DESCRIPTOR = PVOID;
using SECURITY_INFORMATION = DWORD;
#define OWNER_SECURITY_INFORMATION 0x00000001L
#define DACL_SECURITY_INFORMATION 0x00000004L
#define PROTECTED_DACL_SECURITY_INFORMATION 0x80000000L
#define SE_DACL_PRESENT 0x0004
#define SE_DACL_PROTECTED 0x1000

// Security identifiers: who an account or a group is.
#define SID_REVISION 1
#define SECURITY_MAX_SID_SIZE 68
struct SID {
    BYTE Revision;
    BYTE SubAuthorityCount;
    BYTE IdentifierAuthority[6];  // the highest byte first
    DWORD SubAuthority[1];        // as many as SubAuthorityCount says
};
using PSID = PVOID;

// Kinds of records in the log of events.
#define EVENTLOG_SUCCESS 0x0000
#define EVENTLOG_ERROR_TYPE 0x0001
#define EVENTLOG_WARNING_TYPE 0x0002
#define EVENTLOG_INFORMATION_TYPE 0x0004

enum WELL_KNOWN_SID_TYPE {
    WinAuthenticatedUserSid = 17,
    WinLocalSystemSid = 22,
    WinBuiltinAdministratorsSid = 26,
    WinBuiltinGuestsSid = 28
};

// Tokens.
#define TOKEN_ASSIGN_PRIMARY 0x0001
#define TOKEN_DUPLICATE 0x0002
#define TOKEN_IMPERSONATE 0x0004
#define TOKEN_QUERY 0x0008
#define TOKEN_ADJUST_PRIVILEGES 0x0020
#define TOKEN_ADJUST_DEFAULT 0x0080
#define TOKEN_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | 0x01FF)
enum SECURITY_IMPERSONATION_LEVEL { SecurityIdentification = 1 };
enum TOKEN_INFORMATION_CLASS {
    TokenUser = 1,
    TokenSessionId = 12,
    TokenElevation = 20,
    TokenVirtualizationEnabled = 24
};
struct SID_AND_ATTRIBUTES {
    PSID Sid;
    DWORD Attributes;
};
struct TOKEN_USER {
    SID_AND_ATTRIBUTES User;  // the identifier stands behind it, in the same buffer
};
struct TOKEN_ELEVATION {
    DWORD TokenIsElevated;  // nonzero for an administrator (root)
};

// Processes.
#define PROCESS_VM_READ 0x0010
#define PROCESS_QUERY_INFORMATION 0x0400
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000
