// The client side of the crypto service: one request over its pipe, one reply. Nothing is kept
// between two calls, nothing is tried again, and any number of threads may call at once.
//
// Results are 0 or more for success, one of the codes below, or a failure of the transport as
// MsgPipe_SendRecv numbers it.
#pragma once

#include <product_registry.h>
#include <utilsdll.h>
#include <windows.h>

inline constexpr const WCHAR* kCryptdPipe =
    TEXT("\\\\.\\pipe\\SN_{AA18B4A3-A827-45C9-8D3E-E01120E92B44}");

// What the service keeps, in the machine's registry.
inline constexpr const WCHAR* kCryptdStateKey = TEXT(SENTREL_PRODUCT_KEY "\\SA_SNCRYPTD");

// Requests. The reply to each bears the number that follows it.
inline constexpr DWORD CRYPTD_CTRL_CMD_ID_CONFIGURATION_REQ = 2;
inline constexpr DWORD CRYPTD_CTRL_CMD_ID_RANDOM_BYTES_REQ = 4;
inline constexpr DWORD CRYPTD_CTRL_CMD_ID_QUERY_TEXT_REQ = 6;
inline constexpr DWORD CRYPTD_CTRL_CMD_ID_FIPS_ERROR_MODE_REQ = 8;
inline constexpr DWORD CRYPTD_CTRL_CMD_ID_CONFIGURATION_MUTATE_STATE_REQ = 10;
inline constexpr DWORD CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ = 12;
inline constexpr DWORD CRYPTD_CTRL_CMD_ID_CONFIGURATION_STATE_VERIFY_REQ = 14;

// Operations of CryptdConfigurationRequest.
inline constexpr DWORD kCryptdBeginChange = 7;
inline constexpr DWORD kCryptdCommitChange = 8;
inline constexpr DWORD kCryptdVerifyCommitted = 6;  // whether all is as the last commit left it
inline constexpr DWORD kCryptdCountChanges = 9;     // how many changes are open

inline constexpr int kCryptdBadArguments = -1;
inline constexpr int kCryptdUnexpectedReply = -100;  // the reply bore another command's number
inline constexpr int kCryptdWrongCount = -200;       // not the bytes asked for, or no text
inline constexpr int kCryptdErrorModeNotEntered = 100;

// Most random bytes of one exchange.
inline constexpr DWORD kCryptdMostRandomBytes = 101'376;
inline constexpr DWORD kCryptdTimeLimitMilliseconds = 5'000;

// Kinds of random bytes.
inline constexpr DWORD kCryptdRandomBytes = 0;
inline constexpr DWORD kCryptdEntropyBytes = 1;

// Exchanges one request for its reply. `reply` may be null: its values are not wanted then. On
// entry its pData and dataSize are the buffer for the reply's payload; on success dataSize is the
// payload's size. A time limit of 0 is 5,000 ms, INFINITE waits without limit. -1 without a
// request.
int CryptdCallPipeServer(const CryptdMessage* request, CryptdMessage* reply, DWORD milliseconds);

// Asks for an operation on the client's FIPS configuration state. The pointers may be null; result1
// and result2 become the reply's two values (of a commit, result1 is the service's verdict:
// negative when it refused), `reply` its payload.
int CryptdConfigurationRequest(DWORD operation, DWORD parameter, const void* data, DWORD dataSize,
                               int* result1, int* result2, void* reply, DWORD replySize);

// Reports a FIPS error: the message, formatted as FormatWide does, is logged, and the service gets
// the format itself - so callers pass a complete message. 100 when the service's reply was not the
// one to this request.
int CryptdFipsEnterErrorMode(const WCHAR* format, ...);

// Fills a buffer with random bytes and returns their number, `bufSize`. 0 bytes need no service.
// After a failure the buffer may hold the bytes of the exchanges that went well.
int CryptdGetRandomBytes(void* pBuf, int bufSize, DWORD rbgOptions, DWORD timeoutMilliseconds);
// The same with entropy bytes, within 5,000 ms each exchange.
int CryptdGetEntropyBytes(void* pBuf, int bufSize);

// Puts the service's text about itself into a buffer of `capacity` characters; waits as long as the
// service takes. A text that fills the buffer has no terminator. 0 or a negative code.
int CryptdQueryText(WCHAR* text, DWORD capacity);
