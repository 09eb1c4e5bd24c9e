// How a message of MsgPipe_SendRecv stands on its pipe: a header, then the payload. A message is
// one message of the pipe, in both directions; docs/crypto-service.md shows it byte by byte.
#pragma once

#include <windows.h>

#include <bit>
#include <cstddef>
#include <cstring>

inline constexpr DWORD kMessageMagic = 0x474D4E53;  // "SNMG"
inline constexpr WORD kMessageVersion = 1;

// Numbers are little-endian.
struct MessageHeader {
    DWORD magic = kMessageMagic;
    WORD version = kMessageVersion;
    WORD reserved = 0;
    DWORD cmdId = 0;
    int param1 = 0;
    int param2 = 0;
    DWORD payloadSize = 0;
};
static_assert(sizeof(MessageHeader) == 24 && std::endian::native == std::endian::little);

// The header of a message of `size` bytes; false when they are no message.
inline bool ReadHeader(const void* message, std::size_t size, MessageHeader& header) {
    if (size < sizeof header) return false;
    std::memcpy(&header, message, sizeof header);
    return header.magic == kMessageMagic && header.version == kMessageVersion &&
           header.reserved == 0 && header.payloadSize == size - sizeof header;
}
