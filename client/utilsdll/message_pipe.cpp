// One message each way over a pipe (message_frame.h).
#include <algorithm>
#include <new>

#include "client/include/message_frame.h"
#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "common/pipe_call.h"
#include "common/secure_text.h"

namespace {

int ResultOf(DWORD error) {
    switch (error) {
        case ERROR_SUCCESS:
            return 0;
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return MSGPIPE_NO_SERVER;
        case ERROR_ACCESS_DENIED:
            return MSGPIPE_ACCESS_DENIED;
        case ERROR_SEM_TIMEOUT:
            return MSGPIPE_TIMED_OUT;
        case ERROR_BROKEN_PIPE:
        case ERROR_NO_DATA:
        case ERROR_PIPE_NOT_CONNECTED:
            return MSGPIPE_BROKEN;
        case ERROR_MORE_DATA:
            return MSGPIPE_REPLY_TOO_LARGE;
        case ERROR_NOT_ENOUGH_MEMORY:
            return MSGPIPE_NO_MEMORY;
        default:
            return MSGPIPE_FAILED;
    }
}

// Requests and replies may hold secrets.
SecureBytes MakeMessage(const MessageHeader& header, const void* data) {
    SecureBytes message(sizeof header + header.payloadSize);
    std::memcpy(message.data(), &header, sizeof header);
    if (header.payloadSize != 0) {
        std::memcpy(message.data() + sizeof header, data, header.payloadSize);
    }
    return message;
}

// Gives the caller what a reply says.
int TakeReply(const SecureBytes& message, DWORD size, CryptdMessage* reply, void* buffer,
              DWORD* bufferSize) {
    MessageHeader header;
    if (!ReadHeader(message.data(), size, header)) return MSGPIPE_BAD_REPLY;
    if (header.payloadSize != 0) std::memcpy(buffer, &message[sizeof header], header.payloadSize);
    if (bufferSize != nullptr) *bufferSize = header.payloadSize;
    if (reply == nullptr) return 0;
    reply->cmdId = header.cmdId;
    reply->param1 = header.param1;
    reply->param2 = header.param2;
    return 0;
}

}  // namespace

extern "C" int MsgPipe_SendRecv(const WCHAR* pipe, DWORD cmdId, int param1, int param2,
                                const void* data, DWORD dataSize, CryptdMessage* reply,
                                void* replyBuffer, DWORD* replySize, DWORD milliseconds) {
    return Guarded<int>(MSGPIPE_NO_MEMORY, [&]() -> int {
        const DWORD capacity = replySize == nullptr ? 0 : *replySize;
        if (pipe == nullptr || (data == nullptr && dataSize != 0) ||
            (replyBuffer == nullptr && capacity != 0)) {
            return MSGPIPE_BAD_ARGUMENTS;
        }
        if (dataSize > MSGPIPE_MAX_PAYLOAD) return MSGPIPE_TOO_LARGE;

        // A reply that is larger than the caller's buffer does not fit this one either.
        const SecureBytes request = MakeMessage(
            {.cmdId = cmdId, .param1 = param1, .param2 = param2, .payloadSize = dataSize}, data);
        SecureBytes message(sizeof(MessageHeader) + std::min<DWORD>(capacity, MSGPIPE_MAX_PAYLOAD));
        auto size = static_cast<DWORD>(message.size());
        const DWORD error = CallPipe(pipe, request.data(), static_cast<DWORD>(request.size()),
                                     message.data(), size, milliseconds, PipeServer::kTrusted);
        if (error != ERROR_SUCCESS) return ResultOf(error);
        return TakeReply(message, size, reply, replyBuffer, replySize);
    });
}
