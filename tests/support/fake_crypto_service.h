// A crypto service that answers as a test wants it.
#pragma once

#include <gtest/gtest.h>
#include <message_frame.h>

#include <functional>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "common/handles.h"
#include "common/pipe_call.h"
#include "common/security.h"
#include "cryptd/SNCryptdAPI.h"

using Bytes = std::vector<BYTE>;

inline Bytes Message(DWORD command, int param1, const Bytes& payload = {}, int param2 = 0) {
    const MessageHeader header = {.cmdId = command,
                                  .param1 = param1,
                                  .param2 = param2,
                                  .payloadSize = static_cast<DWORD>(payload.size())};
    const auto* const bytes = reinterpret_cast<const BYTE*>(&header);
    Bytes message(bytes, bytes + sizeof header);
    for (const BYTE value : payload) message.push_back(value);
    return message;
}

struct Received {
    MessageHeader header;
    Bytes payload;
};

// Serves the crypto service's pipe to so many clients. An answer that is empty is none: the
// connection stays. Without an answer it ends at once.
class FakeService {
  public:
    using Answer = std::function<std::optional<Bytes>(const Received&)>;

    FakeService(int clients, Answer answer)
        : instance_(CreateNamedPipeW(kCryptdPipe, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                     PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1, 0, 0,
                                     0, AccessList(kServedByAdministrators).get())),
          thread_([this, clients, answer = std::move(answer)] {
              for (int i = 0; i < clients; ++i) {
                  Serve(answer);
                  DisconnectNamedPipe(instance_.get());
              }
          }) {}

    // What it was asked; once all clients were served.
    const std::vector<Received>& Requests() {
        if (thread_.joinable()) thread_.join();
        return requests_;
    }

  private:
    void Serve(const Answer& answer) {
        constexpr DWORD kLimit = 10'000;
        Bytes bytes(200'000);
        DWORD size = 0;
        ASSERT_EQ(WaitForClient(instance_.get(), kLimit), DWORD{ERROR_SUCCESS});
        ASSERT_EQ(ReceiveMessage(instance_.get(), bytes.data(), 200'000, size, kLimit),
                  DWORD{ERROR_SUCCESS});
        Received request;
        ASSERT_TRUE(ReadHeader(bytes.data(), size, request.header));
        request.payload.assign(bytes.data() + sizeof request.header, bytes.data() + size);
        requests_.push_back(request);
        if (const auto reply = answer(request)) {
            if (!reply->empty()) {
                SendMessageTo(instance_.get(), reply->data(), static_cast<DWORD>(reply->size()),
                              kLimit);
            }
            ReceiveMessage(instance_.get(), bytes.data(), 200'000, size, kLimit);
        }
    }

    const UniqueHandle instance_;
    std::vector<Received> requests_;
    std::jthread thread_;  // which the others outlive
};

// The bytes that are asked for, each with this value.
inline FakeService::Answer Giving(BYTE value) {
    return [value](const Received& request) {
        return Message(5, request.header.param1,
                       Bytes(static_cast<std::size_t>(request.header.param1), value));
    };
}
