#include "common/hex.h"

#include <cstdlib>
#include <new>
#include <stdexcept>

std::string BytesToHex(const BYTE* bytes, std::size_t size) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xF];
    }
    return text;
}

bool HexToBytes(std::string_view text, std::vector<BYTE>& bytes) {
    try {
        std::vector<BYTE> decoded(text.size() / 2);
        for (std::size_t k = 0; k < decoded.size(); ++k) {
            const char pair[3] = {text[2 * k], text[2 * k + 1], '\0'};
            decoded[k] = static_cast<BYTE>(std::strtol(pair, nullptr, 16));
        }
        bytes.swap(decoded);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}
