// The state of the crypto service's generator, as the machine keeps it. Its bytes mean something to
// the service alone.
#pragma once

#include <windows.h>

inline constexpr DWORD kDrbgStateSize = 128;

// 0; -1 when there is no state that can be read, or one of more bytes; -2 when what stands there is
// of another type.
int CryptdReadDrbgState(BYTE* state);

// 0; -1 when it cannot be written. The registry key must exist.
int CryptdWriteDrbgState(const BYTE* state);
