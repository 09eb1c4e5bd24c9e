#include "client/utilsdll/key_ring.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <limits>

#include "client/utilsdll/cipher.h"
#include "client/utilsdll/crypto_context.h"
#include "client/utilsdll/kdf.h"
#include "client/utilsdll/machine_secret.h"
#include "client/utilsdll/random.h"

namespace utilsdll {
namespace {

constexpr std::size_t kEntries = 8;
constexpr std::size_t kDigestSize = 64;

// The pass phrase as UTF-16LE bytes.
SecureBytes PassPhraseBytes(const WCHAR* passPhrase) {
    const WStringView text(passPhrase);
    SecureBytes bytes;
    bytes.reserve(2 * text.size());
    for (const WCHAR unit : text) {
        bytes.push_back(LOBYTE(unit));
        bytes.push_back(HIBYTE(unit));
    }
    return bytes;
}

// Tells pass phrases, and the machine's secret, apart; kept sealed, as the keys are.
bool DigestOf(const WCHAR* passPhrase, SecureBytes& digest) {
    SecureBytes named(1, passPhrase == nullptr ? BYTE{0} : BYTE{1});
    if (passPhrase != nullptr) {
        const SecureBytes bytes = PassPhraseBytes(passPhrase);
        named.insert(named.end(), bytes.begin(), bytes.end());
    }
    digest.resize(kDigestSize);
    const auto context = CryptoContext();
    return context && EVP_Q_digest(*context, "SHA512", nullptr, named.data(), named.size(),
                                   digest.data(), nullptr) == 1;
}

bool Stretch(const WCHAR* passPhrase, const Salt& salt, SecureBytes& key) {
    if (passPhrase != nullptr) {
        return Pbkdf2(PassPhraseBytes(passPhrase), Labelled(kPassPhraseLabel, salt), kStretchRounds,
                      kStretchedSize, key);
    }
    SecureBytes secret;
    return MachineSecret(secret) &&
           Hkdf(secret, Labelled(kMachineLabel, salt), {}, kStretchedSize, key);
}

}  // namespace

KeyRing::Entry* KeyRing::Find(const SecureBytes& digest, SecureBytes& key, const Salt* salt) {
    for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
        if (salt == nullptr ? !entry->nextCounter : entry->salt != *salt) continue;
        SecureBytes secret;
        if (!entry->secret.Open(secret) ||
            CRYPTO_memcmp(secret.data(), digest.data(), kDigestSize) != 0) {
            continue;
        }
        key.assign(secret.begin() + kDigestSize, secret.end());
        entries_.splice(entries_.begin(), entries_, entry);
        return &entries_.front();
    }
    return nullptr;
}

KeyRing::Entry* KeyRing::Add(const WCHAR* passPhrase, const SecureBytes& digest, const Salt& salt,
                             SecureBytes& key) {
    SecureBytes stretched;
    if (!Stretch(passPhrase, salt, stretched)) return nullptr;
    SecureBytes secret(digest);
    secret.insert(secret.end(), stretched.begin(), stretched.end());
    Entry entry;
    entry.salt = salt;
    if (!entry.secret.Seal(std::move(secret))) return nullptr;
    entries_.push_front(std::move(entry));
    if (entries_.size() > kEntries) entries_.pop_back();
    key.swap(stretched);
    return &entries_.front();
}

bool KeyRing::NewMessage(const WCHAR* passPhrase, MessageId& id, SecureBytes& key) {
    SecureBytes digest;
    if (!DigestOf(passPhrase, digest)) return false;
    const std::lock_guard lock(mutex_);
    Entry* entry = Find(digest, key, nullptr);
    if (entry == nullptr) {
        BYTE drawn[sizeof(Salt) + sizeof(std::uint32_t)];
        if (!DrawRandom(drawn)) return false;
        Salt salt;
        std::copy_n(drawn, salt.size(), salt.begin());
        entry = Add(passPhrase, digest, salt, key);
        if (entry == nullptr) return false;
        entry->nextCounter = ReadCounter(drawn + sizeof(Salt));
    }
    id = {entry->salt, *entry->nextCounter};
    if (id.counter == std::numeric_limits<std::uint32_t>::max()) {
        entry->nextCounter.reset();
    } else {
        ++*entry->nextCounter;
    }
    return true;
}

bool KeyRing::KeyOf(const WCHAR* passPhrase, const Salt& salt, SecureBytes& key) {
    SecureBytes digest;
    if (!DigestOf(passPhrase, digest)) return false;
    const std::lock_guard lock(mutex_);
    return Find(digest, key, &salt) != nullptr || Add(passPhrase, digest, salt, key) != nullptr;
}

}  // namespace utilsdll
