// The keys of pass phrases. Stretching a pass phrase is slow on purpose, so it is done once for
// each salt: this process encrypts everything under one salt for each pass phrase, and the keys of
// the last few salts that it met are remembered.
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>

#include "client/utilsdll/sealed_bytes.h"

namespace utilsdll {

using Salt = std::array<BYTE, 8>;

// What names the key of one message: no two messages of one pass phrase share both.
struct MessageId {
    Salt salt{};
    std::uint32_t counter = 0;
};

// Safe for concurrent use. A null pass phrase stands for the machine's own secret.
class KeyRing {
  public:
    // The id of a new message, and the stretched key of its salt.
    bool NewMessage(const WCHAR* passPhrase, MessageId& id, SecureBytes& key);
    // The stretched key of a salt that some message bears.
    bool KeyOf(const WCHAR* passPhrase, const Salt& salt, SecureBytes& key);

  private:
    struct Entry {
        Salt salt{};
        SealedBytes secret;  // the digest of the pass phrase, then its stretched key
        // A salt that this process drew: the counter of its next message. Empty for the salts of
        // others and for one whose counters are used up.
        std::optional<std::uint32_t> nextCounter;
    };

    Entry* Find(const SecureBytes& digest, SecureBytes& key, const Salt* salt);
    Entry* Add(const WCHAR* passPhrase, const SecureBytes& digest, const Salt& salt,
               SecureBytes& key);

    std::mutex mutex_;
    std::list<Entry> entries_;  // the one used last comes first
};

}  // namespace utilsdll
