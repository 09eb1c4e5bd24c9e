// The form of an encrypted buffer:
//
//   salt[8] counter[4] ciphertext[as long as the plaintext] tag[16]
//
// The counter is a big-endian number. With "label" 00 x for the label's ASCII characters, a zero
// byte and x:
//
//   stretched[64]     = PBKDF2-HMAC-SHA512(pass phrase as UTF-16LE without terminator,
//                                          "Sentrel pass phrase" 00 salt, 210000 rounds)
//   key[32] nonce[12] = HKDF-SHA512(key: stretched, no salt, info: "Sentrel message" 00 counter)
//   ciphertext, tag   = AES-256-GCM(key, nonce, plaintext), without additional data
//
// The default key starts from the machine's secret. That is 32 random bytes, which no amount of
// guessing reaches, so it is not stretched:
//
//   stretched[64]     = HKDF-SHA512(key: secret, salt: "Sentrel machine secret" 00 salt, no info)
//
// Salt and counter stand for one message only, so each key and nonce encrypt a single message, and
// a change of either makes another key: the tag vouches for them as well.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace utilsdll {

inline constexpr std::string_view kPassPhraseLabel = "Sentrel pass phrase";
inline constexpr std::string_view kMachineLabel = "Sentrel machine secret";
inline constexpr std::string_view kMessageLabel = "Sentrel message";
inline constexpr int kStretchRounds = 210'000;
inline constexpr std::size_t kStretchedSize = 64;

// The counter as it stands in a message.
inline std::uint32_t ReadCounter(const BYTE* bytes) {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
           std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

}  // namespace utilsdll
