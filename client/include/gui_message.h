// The messages on the pipe of the client's user interface. Each is one pipe message, which the user
// interface answers with a GuiReply once it has taken it. Numbers are little-endian.
#pragma once

#include <windows.h>

// The pipe of a session is named by this, "_" and the session's decimal number.
inline constexpr const WCHAR* kGuiPipe =
    TEXT("\\\\.\\pipe\\SN_{8264D419-EBF5-4727-9E4C-AC4EB4EF54F3}");

enum class GuiMessageKind : DWORD {
    kCode = 1,      // GuiCodeMessage
    kTrayText = 2,  // GuiTrayMessage
};

struct GuiCodeMessage {
    GuiMessageKind kind;
    DWORD code;
    DWORD parameters[4];
};

// Sent up to the end of its text, which has no terminator.
inline constexpr DWORD kGuiTrayTextCapacity = 512;  // characters
struct GuiTrayMessage {
    GuiMessageKind kind;
    WCHAR text[kGuiTrayTextCapacity];
};

struct GuiReply {
    DWORD taken;  // nonzero unless the message was not understood
};
