#include "cryptd/SNCryptdAPI.h"

#include <algorithm>
#include <array>
#include <cstdarg>

#include "common/format.h"
#include "cryptd/crypto_log.h"

namespace {

// How an operation on the configuration state is asked for. One with a name is told in the log.
struct Operation {
    DWORD code;
    DWORD command;
    DWORD milliseconds;
    const WCHAR* name;
};
constexpr Operation kOperations[] = {
    {kCryptdBeginChange, CRYPTD_CTRL_CMD_ID_CONFIGURATION_MUTATE_STATE_REQ, 30'000,
     TEXT("CRYPTD_CTRL_CMD_ID_CONFIGURATION_MUTATE_STATE_REQ")},
    {kCryptdCommitChange, CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ, 30'000,
     TEXT("CRYPTD_CTRL_CMD_ID_CONFIGURATION_COMMIT_MUTATION_STATE_REQ")},
    {kCryptdCountChanges, CRYPTD_CTRL_CMD_ID_CONFIGURATION_STATE_VERIFY_REQ, 30'000,
     TEXT("CRYPTD_CTRL_CMD_ID_CONFIGURATION_STATE_VERIFY_REQ")},
    {kCryptdVerifyCommitted, CRYPTD_CTRL_CMD_ID_CONFIGURATION_STATE_VERIFY_REQ, 30'000,
     TEXT("CRYPTD_CTRL_CMD_ID_CONFIGURATION_STATE_VERIFY_REQ")},
};

Operation FindOperation(DWORD code) {
    for (const Operation& operation : kOperations) {
        if (operation.code == code) return operation;
    }
    return {code, CRYPTD_CTRL_CMD_ID_CONFIGURATION_REQ, kCryptdTimeLimitMilliseconds, nullptr};
}

bool Answers(const CryptdMessage& reply, const CryptdMessage& request) {
    return reply.cmdId == request.cmdId + 1;
}

// One exchange's bytes: their number or a negative code.
int GetChunk(BYTE* bytes, int size, DWORD rbgOptions, DWORD milliseconds) {
    const CryptdMessage request = {CRYPTD_CTRL_CMD_ID_RANDOM_BYTES_REQ, size,
                                   static_cast<int>(rbgOptions), nullptr, 0};
    CryptdMessage reply = {0, 0, 0, bytes, static_cast<DWORD>(size)};
    const int result = CryptdCallPipeServer(&request, &reply, milliseconds);
    if (result < 0) return result;
    if (!Answers(reply, request)) return kCryptdUnexpectedReply;
    return reply.param1 == size && reply.dataSize == static_cast<DWORD>(size) ? size
                                                                              : kCryptdWrongCount;
}

int GetBytes(BYTE* bytes, int size, DWORD rbgOptions, DWORD milliseconds) {
    if (bytes == nullptr || size < 0) return kCryptdBadArguments;
    for (int got = 0; got < size;) {
        const int chunk = std::min(size - got, static_cast<int>(kCryptdMostRandomBytes));
        const int result = GetChunk(bytes + got, chunk, rbgOptions, milliseconds);
        if (result < 0) return result;
        got += chunk;
    }
    return size;
}

// The first two bytes of a buffer, for the log; zeros where it has none.
std::array<BYTE, 2> FirstBytes(const void* buffer, int size) {
    std::array<BYTE, 2> first = {};
    if (buffer != nullptr && size > 0) {
        std::copy_n(static_cast<const BYTE*>(buffer), std::min(size, 2), first.begin());
    }
    return first;
}

}  // namespace

int CryptdCallPipeServer(const CryptdMessage* request, CryptdMessage* reply, DWORD milliseconds) {
    if (request == nullptr) return kCryptdBadArguments;
    return MsgPipe_SendRecv(kCryptdPipe, request->cmdId, request->param1, request->param2,
                            request->pData, request->dataSize, reply,
                            reply == nullptr ? nullptr : reply->pData,
                            reply == nullptr ? nullptr : &reply->dataSize,
                            milliseconds == 0 ? kCryptdTimeLimitMilliseconds : milliseconds);
}

int CryptdConfigurationRequest(DWORD operation, DWORD parameter, const void* data, DWORD dataSize,
                               int* result1, int* result2, void* reply, DWORD replySize) {
    // 1. The request. It only reads the data, although its type says otherwise.
    const auto& [code, command, milliseconds, name] = FindOperation(operation);
    const CryptdMessage request = {command, static_cast<int>(code), static_cast<int>(parameter),
                                   const_cast<void*>(data), dataSize};
    CryptdMessage answer = {0, 0, 0, reply, replySize};

    // 2. The exchange, told in the log.
    if (name != nullptr) CryptdMsgPrintfW(TEXT("send %ws\n"), name);
    const int result = CryptdCallPipeServer(&request, &answer, milliseconds);
    if (name != nullptr) CryptdMsgPrintfW(TEXT("sent %ws res=%d\n"), name, result);

    // 3. What came of it.
    if (result < 0) return result;
    if (!Answers(answer, request)) return kCryptdUnexpectedReply;
    if (result1 != nullptr) *result1 = answer.param1;
    if (result2 != nullptr) *result2 = answer.param2;
    return 0;
}

int CryptdFipsEnterErrorMode(const WCHAR* format, ...) {
    if (format == nullptr) format = TEXT("");
    constexpr const WCHAR* kName = TEXT("CryptdFipsEnterErrorMode");
    constexpr std::size_t kCapacity = 8'192;  // characters, with the terminator

    // 1. The message for the log.
    va_list arguments;
    va_start(arguments, format);
    WString text = FormatWideV(format, arguments).substr(0, kCapacity - 1);
    va_end(arguments);
    if (!text.ends_with(TEXT('\n'))) text += TEXT('\n');
    CryptdMsgPrintfW(TEXT("%ws()--> msg =\n%s---\n"), kName, text.c_str());

    // 2. The service gets it as the caller wrote it.
    const std::size_t size = (WStringView(format).size() + 1) * sizeof(WCHAR);
    const CryptdMessage request = {CRYPTD_CTRL_CMD_ID_FIPS_ERROR_MODE_REQ, 0, 0,
                                   const_cast<WCHAR*>(format), static_cast<DWORD>(size)};
    CryptdMessage reply = {};
    int result = CryptdCallPipeServer(&request, &reply, kCryptdTimeLimitMilliseconds);
    if (result >= 0) result = Answers(reply, request) ? 0 : kCryptdErrorModeNotEntered;
    if (result != 0) {
        CryptdMsgPrintfW(TEXT("%ws()--> CryptdCallPipeServer() failed. (r=%d)\n"), kName, result);
    }
    return result;
}

int CryptdGetRandomBytes(void* pBuf, int bufSize, DWORD rbgOptions, DWORD timeoutMilliseconds) {
    const int result = GetBytes(static_cast<BYTE*>(pBuf), bufSize, rbgOptions, timeoutMilliseconds);
    if (rbgOptions != kCryptdEntropyBytes && CryptdIsTraceEnabled() != 0) {
        const auto first = FirstBytes(pBuf, bufSize);
        CryptdMsgPrintf(
            "%s(pBuf=%p, bufSize=%d, rbgOptions=%u, timeoutMilliseconds=%u) = %d -> %02x %02x "
            "...\n",
            "CryptdGetRandomBytes", pBuf, bufSize, static_cast<unsigned>(rbgOptions),
            static_cast<unsigned>(timeoutMilliseconds), result, first[0], first[1]);
    }
    return result;
}

int CryptdGetEntropyBytes(void* pBuf, int bufSize) {
    const int result =
        CryptdGetRandomBytes(pBuf, bufSize, kCryptdEntropyBytes, kCryptdTimeLimitMilliseconds);
    if (bufSize >= 2 && CryptdIsTraceEnabled() != 0) {
        const auto first = FirstBytes(pBuf, bufSize);
        CryptdMsgPrintf("%s(pBuf=%p, bufSize=%d) = rc=%d -> %02x %02x ...\n",
                        "CryptdGetEntropyBytes", pBuf, bufSize, result, first[0], first[1]);
    }
    return result;
}

int CryptdQueryText(WCHAR* text, DWORD capacity) {
    if (text == nullptr || capacity == 0) return kCryptdBadArguments;
    constexpr DWORD kUnit = sizeof(WCHAR);
    const CryptdMessage request = {CRYPTD_CTRL_CMD_ID_QUERY_TEXT_REQ, 0, 0, nullptr, 0};
    CryptdMessage reply = {0, 0, 0, text, capacity * kUnit};
    const int result = CryptdCallPipeServer(&request, &reply, INFINITE);
    if (result < 0) return result;
    if (!Answers(reply, request)) return kCryptdUnexpectedReply;
    if (reply.param1 == 0) return kCryptdWrongCount;
    // Also when the service forgot the terminator; a text that fills the buffer has no room for it.
    if (reply.dataSize / kUnit < capacity) text[reply.dataSize / kUnit] = 0;
    return 0;
}
