// The service's answers.
#pragma once

#include <message_frame.h>

#include <span>
#include <vector>

#include "common/secure_text.h"

// Who asks: an authenticated account of this machine, no guest.
struct Client {
    DWORD process = 0;
    std::vector<BYTE> account;  // its security identifier
    bool isAdministrator = false;
};

// The whole reply to a whole message; empty when that is no message.
SecureBytes Answer(std::span<const BYTE> message, const Client& client);
