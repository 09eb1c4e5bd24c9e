// Contract of the client's utility library (utilsdll): what the configuration tool and the plug-ins
// may rely on. Names are those that the library exports.
//
// Unless a function says otherwise: text is NUL-terminated UTF-16 owned by the caller; a getter
// that fails leaves its outputs as they were; no function throws.
#pragma once

#include <client_export.h>
#include <windows.h>

#ifdef UTILSDLL_EXPORTS
#define UTILSDLL_API CLIENT_EXPORT
#else
#define UTILSDLL_API
#endif

extern "C" {

// --- Registry -----------------------------------------------------------------------------------
// Key handles are ordinary registry key handles: RegCloseKey closes what reg_openkeyW opened, and
// reg_closekeyW what RegOpenKeyExW opened. Unless the registry lock lets this process write
// (sec_may_write_registry), every function that writes refuses keys at or below
// "software\Verdane\Sentrel" of HKEY_LOCAL_MACHINE, in whatever way their handle was opened, and
// none is made there.

// Opens an existing key with the rights to read and to set values; null when it is missing or
// access is denied.
UTILSDLL_API HKEY reg_openkeyW(HKEY parent, const WCHAR* path);
// Opens a key for the same use, creating it and its parents when missing. A trailing "\" is
// allowed.
UTILSDLL_API HKEY reg_createkeyW(HKEY parent, const WCHAR* path);
UTILSDLL_API void reg_closekeyW(HKEY key);

// Plain text of a REG_SZ value, also of a protected one, in *text; released with reg_free.
// *characters, when given, becomes its length without the terminator.
UTILSDLL_API bool reg_getstringW(HKEY key, const WCHAR* name, WCHAR** text, DWORD* characters);
// The stored bytes of a REG_MULTI_SZ value, both terminating zero characters included (added where
// the stored value lacks them), in *data; released with reg_free. *bytes becomes their count.
UTILSDLL_API bool reg_getmultistringW(HKEY key, const WCHAR* name, WCHAR** data, DWORD* bytes);
UTILSDLL_API bool reg_getDWORDW(HKEY key, const WCHAR* name, DWORD* number);
// Plain text of what a REG_SZ value stores, as RegQueryValueExW and RegEnumValueW give it, in
// *text; released with reg_free. *characters becomes its length without the terminator,
// *isProtected whether it is the library's protected form. False for a protected form that does not
// open.
UTILSDLL_API bool reg_open_stored_stringW(const WCHAR* stored, WCHAR** text, DWORD* characters,
                                          bool* isProtected);
// The other way round: the form in which a REG_SZ value stores the text, in the protected form of
// reg_setstring_encW where asked for, in *stored; released with reg_free.
UTILSDLL_API bool reg_make_stored_stringW(const WCHAR* text, bool isProtected, WCHAR** stored);
// True when the string value is held in the library's protected form.
UTILSDLL_API bool reg_is_encrypted_valueW(HKEY key, const WCHAR* name);
// Number of values of the key; `reserved` is 0.
UTILSDLL_API bool reg_getvaluecount(HKEY key, DWORD* count, DWORD reserved);
// Name of the value at an index, terminated within `capacity` characters.
UTILSDLL_API bool reg_getvaluenamebyindexW(HKEY key, DWORD index, WCHAR* name, DWORD capacity);
UTILSDLL_API void reg_free(void* data);

// Called with an open handle of a key (closed by the walk), its path and the walk's context; true
// goes on.
typedef bool (*reg_visitorW)(HKEY key, const WCHAR* path, void* context);
// Visits every key below `key`, each before its own subkeys and in the registry's order of subkeys;
// not `key` itself. `path` names `key`; a visited key's path is `path`, "\" and the path below it.
// The handles are for reading; the functions above that read values answer for them from what the
// key held when the visitor first asked, whatever others write meanwhile. A key that cannot be read
// is passed over; one that the visitor deletes before its turn is not visited. False when the
// visitor ended the walk or a key could not be read.
UTILSDLL_API bool reg_walk2W(HKEY key, const WCHAR* path, reg_visitorW visitor, void* context);

UTILSDLL_API bool reg_setstringW(HKEY key, const WCHAR* name, const WCHAR* text);
// Stores the text in the library's protected form: encrypted at rest, readable on this machine...
UTILSDLL_API bool reg_setstring_encW(HKEY key, const WCHAR* name, const WCHAR* text);
// ... or by the current user alone (the impersonated user while the caller impersonates).
UTILSDLL_API bool reg_setstring_enc_cuW(HKEY key, const WCHAR* name, const WCHAR* text);
UTILSDLL_API bool reg_setDWORDW(HKEY key, const WCHAR* name, DWORD number);
// `list`: zero-terminated strings ended by an empty one.
UTILSDLL_API bool reg_setmultistringW(HKEY key, const WCHAR* name, const WCHAR* list);
UTILSDLL_API bool reg_removevalueW(HKEY key, const WCHAR* name);

// --- Protection state ---------------------------------------------------------------------------

// The registry lock keeps the client's settings as they are. It counts only while a lock password
// is set. A process may write past it once cfg_sentrelmanager_cmp_pwd has confirmed the lock
// password to it, as long as that password stays and the process holds both bypasses (below).

// Whether the lock is set. A state that cannot be read counts as set.
UTILSDLL_API bool sec_is_registry_locked();
// Sets (true) or clears (false) the registry lock. A process that may write past the lock does not
// clear it for others: the lock is not set for this process until it sets it again or ends. False
// when the caller may not, and when there is no lock password to set the lock with.
UTILSDLL_API bool sec_set_sa_registry_lock(bool lock);
// True when the registry lock lets this process write the client's settings.
UTILSDLL_API bool sec_may_write_registry();
// Each returns a handle that stands for this process's bypass of one of the client's
// file-protection components while it is open (closed with CloseHandle); INVALID_HANDLE_VALUE when
// none was obtained, as by an account that is no administrator. From outside, a bypass is seen as a
// named event that exists while it is held.
UTILSDLL_API HANDLE bBypassFsfilter();
UTILSDLL_API HANDLE bBypassGuardlet();

// --- Management and rights ----------------------------------------------------------------------

// Nonzero when the client is managed by the central management server.
UTILSDLL_API int cfg_is_managed_by_cms();
// Says whether it is. Like every call that sets something here: false when the caller may not.
UTILSDLL_API bool cfg_set_managed_by_cms(bool managed);
// Nonzero when the client's scheduler service ("SA_Scheduler") runs.
UTILSDLL_API int cfg_is_scheduler_running();
// True when the service of that name runs; also when the caller may not learn whether it does.
UTILSDLL_API bool service_is_running(const WCHAR* service);
// Nonzero when the client is in FIPS mode.
UTILSDLL_API int cfg_is_fips_mode_enabled();
// Switches the utility library's and the crypto library's FIPS mode.
UTILSDLL_API bool cfg_set_fips_mode(bool on);

// Size in bytes of the buffer that cfg_get_sentrelmanager_info fills.
#define SENTRELMANAGER_INFO_SIZE 568
// Fills the management information (a NUL-terminated description in UTF-16, then zeros).
UTILSDLL_API void cfg_get_sentrelmanager_info(void* buffer);
// True when the password equals the configuration lock password. The empty text equals it exactly
// when none is set.
UTILSDLL_API bool cfg_sentrelmanager_cmp_pwd(const WCHAR* password);
// Sets the configuration lock password, of which only a salted hash is kept; empty removes it and
// clears the registry lock.
UTILSDLL_API bool cfg_sentrelmanager_set_pwd(const WCHAR* password);

// What kind of account the process runs in: 2 for the system's own account, else 1.
UTILSDLL_API int sec_get_account_type();
// What the process's user may do: 0 guest, 1 standard user, 2 administrator.
UTILSDLL_API int sec_get_user_type();

// Tells the client's scheduler that the configuration changed: sets the event
// "Global\SN_CONFIG_CHANGED" where it exists.
UTILSDLL_API void signal_scheduler();

// --- Sessions and the user interface ------------------------------------------------------------

// Nonzero on a 64-bit system, and on Windows Vista and later.
UTILSDLL_API bool is64Bit();
UTILSDLL_API bool os_is_windows_Vista();

// Puts a token of the user logged on to a session into *token, which the caller closes; `reserved`
// is 0. 0 on success, else a Windows error code.
UTILSDLL_API int GetTokenOfSession(DWORD sessionId, HANDLE* token, DWORD reserved);

// Posts a code with four parameters to the user interface that listens on the pipe. Nonzero when it
// was delivered.
UTILSDLL_API int PostMessageGui(const WCHAR* pipe, DWORD code, DWORD parameter1, DWORD parameter2,
                                DWORD parameter3, DWORD parameter4);
// Shows the text as a tray notification of the client, through the user interface that the last
// PostMessageGui of this process reached; `reserved` is 0.
UTILSDLL_API void ShowTrayIconNotification(const WCHAR* text, DWORD reserved);

// --- Cipher -------------------------------------------------------------------------------------
// AES-256-GCM under a key made from a pass phrase. A null pass phrase selects the library's default
// key, a secret of this machine that only the account which first used it can read. The output is
// 28 bytes longer than the input:
//   salt[8] counter[4] ciphertext tag[16]
// *outputSize is the capacity on entry and the bytes produced on return; a failure leaves it as it
// was. 0 is success. Both may be called from several threads at once; the input and the
// output must not overlap.

UTILSDLL_API int encrypt_buffer(const void* input, DWORD inputSize, void* output, DWORD* outputSize,
                                const WCHAR* passPhrase);
// Fails for a wrong pass phrase, a short buffer or input that encrypt_buffer did not make, and then
// leaves nothing of a plaintext in the output: it is as it was, or zeroed as far as it was written.
// A leading "Enc " marker is passed over; what does not open without it is tried whole.
UTILSDLL_API int decrypt_buffer(const void* input, DWORD inputSize, void* output, DWORD* outputSize,
                                const WCHAR* passPhrase);
// Reads `length` hexadecimal digits of either case. 0 on success; fails, without writing to the
// output, for an odd length, a character that is no digit, and a buffer that is too small.
UTILSDLL_API int hex2bin(const WCHAR* text, DWORD length, BYTE* output, DWORD* outputSize);

// --- Message pipes ------------------------------------------------------------------------------

// One request or one reply on a message pipe. Fields that a message does not use are zero.
typedef struct CryptdMessage {
    DWORD cmdId;     // what is asked; of a reply, what it answers
    int param1;      // of a reply: its first result
    int param2;      // of a reply: its second result
    void* pData;     // payload of a request, or the buffer for that of a reply; may be null
    DWORD dataSize;  // bytes of the payload, or of the buffer
} CryptdMessage;

// Largest payload of a message, in bytes.
#define MSGPIPE_MAX_PAYLOAD 131072

// Failures of MsgPipe_SendRecv.
enum {
    MSGPIPE_BAD_ARGUMENTS = -1001,    // no pipe name, or a size without memory
    MSGPIPE_TOO_LARGE = -1002,        // the request's payload is larger than a message may be
    MSGPIPE_NO_SERVER = -1003,        // nobody serves the pipe
    MSGPIPE_ACCESS_DENIED = -1004,    // the pipe is not open to this account
    MSGPIPE_TIMED_OUT = -1005,        // the time is up
    MSGPIPE_BROKEN = -1006,           // the server ended the connection without a reply
    MSGPIPE_BAD_REPLY = -1007,        // what came is no message
    MSGPIPE_REPLY_TOO_LARGE = -1008,  // the reply's payload does not fit its buffer
    MSGPIPE_NO_MEMORY = -1009,
    MSGPIPE_FAILED = -1010,  // anything else
};

// Sends one message over a pipe and waits for its reply, in a connection of their own. The time
// limit in milliseconds (INFINITE: none) holds for all of it. On success (0) the reply's command
// and parameters stand in *reply (which may be null), its payload in `replyBuffer`, and its
// payload's size in *replySize, which is the buffer's capacity on entry; both are null for a reply
// without payload. On failure (a code above) nothing was written.
UTILSDLL_API int MsgPipe_SendRecv(const WCHAR* pipe, DWORD cmdId, int param1, int param2,
                                  const void* data, DWORD dataSize, CryptdMessage* reply,
                                  void* replyBuffer, DWORD* replySize, DWORD milliseconds);

// --- Log ----------------------------------------------------------------------------------------

typedef struct SN_LOG* SN_LOG_HANDLE;

// Opens the log of a component, "<common application data>\Sentrel\logs\<component>.log"; null when
// it cannot be opened. Closed with log_deinitialize.
UTILSDLL_API SN_LOG_HANDLE log_initialize(const WCHAR* component);
UTILSDLL_API void log_deinitialize(SN_LOG_HANDLE log);
// Each appends one line, whole also beside other processes, formatted in the manner of Windows'
// wide printf; a line end or another control character in the text becomes \x and its code. The
// last error stays as it was. With no handle they do nothing.
UTILSDLL_API void log_error_fmt(SN_LOG_HANDLE log, const WCHAR* format, ...);
UTILSDLL_API void log_debug_fmt(SN_LOG_HANDLE log, const WCHAR* format, ...);

// --- Folders ------------------------------------------------------------------------------------

// The client's installation folder, without a trailing separator; owned by the library.
UTILSDLL_API const WCHAR* cfg_get_install_dir();
// Makes a new empty file in a folder of the process's own below `folder` and puts its path (with
// terminator) into `path`. A null prefix gives the library's own. Nonzero on success; on failure no
// file is left behind.
//
// The file belongs to the process's account, also while the thread impersonates: then the
// impersonated account may read and write its data, but neither delete nor rename nor replace it.
// No other account may use it. The folder can be removed with its last file and goes with the
// process; what a process left that was killed is removed by the next one that makes a file below
// `folder`.
UTILSDLL_API int fs_get_temp_file_path(const WCHAR* folder, const WCHAR* prefix, WCHAR* path,
                                       DWORD capacity);
}

// --- Switch parsing -----------------------------------------------------------------------------
// The C library's getopt_long for wide text, with its conventions (permutation, "--name=value" and
// "--name value", abbreviated long names, '?' for an unknown switch or a missing argument).
// Names of switches are ASCII. It never prints. A namespace keeps the names apart from the C
// library's own; the library for Windows exports them as "getopt_long" and "optarg".

namespace utils {

struct option {
    const WCHAR* name;
    int has_arg;  // 0: none, 1: required, 2: optional
    int* flag;    // null: getopt_long returns `val`; otherwise *flag becomes val and it returns 0
    int val;
};

// The argument of the switch just returned (points into argv), or null.
extern CLIENT_EXPORT_RENAMED WCHAR* optarg __asm__("optarg_wide");

// `longOptions` ends with a row whose name is null. Returns the switch, '?' or, at the end, -1.
// The next call, and one with another vector or other words, starts over. Reorders argv so that
// words that are no switches come last; with the environment variable POSIXLY_CORRECT the first
// such word ends the switches instead. Not safe for concurrent use.
CLIENT_EXPORT_RENAMED int getopt_long(int argc, WCHAR* const* argv, const WCHAR* shortOptions,
                                      const option* longOptions,
                                      int* longIndex) __asm__("getopt_long_wide");

}  // namespace utils
