// Messages to the client's user interface (gui_message.h).
#include <algorithm>
#include <cstddef>
#include <mutex>

#include "client/include/gui_message.h"
#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "common/pipe_call.h"
#include "common/text.h"

namespace {

// For the whole exchange: a user interface that hangs does not hold up its caller.
constexpr DWORD kTimeLimitMilliseconds = 2000;

// The user interface that was reached last.
class LastReached {
  public:
    void Set(WStringView pipe) {
        const std::lock_guard lock(mutex_);
        pipe_ = pipe;
    }
    WString Get() {
        const std::lock_guard lock(mutex_);
        return pipe_;
    }

  private:
    std::mutex mutex_;
    WString pipe_;
};

LastReached& LastReachedGui() {
    static LastReached gui;
    return gui;
}

bool Deliver(const WCHAR* pipe, const void* message, DWORD size) {
    GuiReply reply = {};
    DWORD replySize = sizeof reply;
    // The user interface runs as the session's user, so any account may be behind its name. It is
    // told codes and the tray's fixed texts alone, and its answer decides about no more than
    // whether there is a tray text.
    return CallPipe(pipe, message, size, &reply, replySize, kTimeLimitMilliseconds,
                    PipeServer::kAnyone) == ERROR_SUCCESS &&
           replySize == sizeof reply && reply.taken != 0;
}

bool DeliverTrayText(const WString& pipe, WStringView text) {
    GuiTrayMessage message = {GuiMessageKind::kTrayText, {}};
    const WStringView shown = text.substr(0, kGuiTrayTextCapacity);
    std::copy(shown.begin(), shown.end(), message.text);
    const std::size_t size = offsetof(GuiTrayMessage, text) + shown.size() * sizeof(WCHAR);
    return Deliver(pipe.c_str(), &message, static_cast<DWORD>(size));
}

}  // namespace

extern "C" int PostMessageGui(const WCHAR* pipe, DWORD code, DWORD parameter1, DWORD parameter2,
                              DWORD parameter3, DWORD parameter4) {
    return Guarded(0, [&] {
        const GuiCodeMessage message = {
            GuiMessageKind::kCode, code, {parameter1, parameter2, parameter3, parameter4}};
        if (pipe == nullptr || !Deliver(pipe, &message, sizeof message)) return 0;
        LastReachedGui().Set(pipe);
        return 1;
    });
}

extern "C" void ShowTrayIconNotification(const WCHAR* text, DWORD reserved) {
    Guarded(false, [&] {
        const WString pipe = LastReachedGui().Get();
        if (text == nullptr || reserved != 0 || pipe.empty()) return false;
        return DeliverTrayText(pipe, text);
    });
}
