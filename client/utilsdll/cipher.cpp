#include "client/utilsdll/cipher.h"

#include <configuration_format.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <limits>
#include <span>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "client/utilsdll/crypto_context.h"
#include "client/utilsdll/kdf.h"
#include "client/utilsdll/key_ring.h"
#include "common/openssl_owner.h"

namespace utilsdll {
namespace {

constexpr std::size_t kCounterSize = 4;
constexpr std::size_t kHeaderSize = sizeof(Salt) + kCounterSize;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kOverhead = kHeaderSize + kTagSize;
constexpr std::size_t kKeySize = 32;
constexpr std::size_t kNonceSize = 12;
constexpr int kFailed = 1;

using Algorithm = UniqueOpenSsl<EVP_CIPHER, EVP_CIPHER_free>;
using CipherContext = UniqueOpenSsl<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

// Wiped when the library is unloaded.
KeyRing keys;

std::array<BYTE, kCounterSize> CounterBytes(std::uint32_t counter) {
    return {static_cast<BYTE>(counter >> 24), static_cast<BYTE>(counter >> 16),
            static_cast<BYTE>(counter >> 8), static_cast<BYTE>(counter)};
}

// A cipher set up with the message's own key and nonce; null on failure.
CipherContext MessageCipher(const SecureBytes& stretched, std::uint32_t counter, bool encrypt) {
    SecureBytes derived;
    if (!Hkdf(stretched, {}, Labelled(kMessageLabel, CounterBytes(counter)), kKeySize + kNonceSize,
              derived)) {
        return nullptr;
    }
    const auto library = CryptoContext();
    if (!library) return nullptr;
    const Algorithm aes(EVP_CIPHER_fetch(*library, "AES-256-GCM", nullptr));
    CipherContext cipher(EVP_CIPHER_CTX_new());
    if (!aes || !cipher ||
        EVP_CipherInit_ex2(cipher.get(), aes.get(), derived.data(), derived.data() + kKeySize,
                           encrypt ? 1 : 0, nullptr) != 1) {
        return nullptr;
    }
    return cipher;
}

// Runs the cipher over a text of any length; the library counts in int.
bool Transform(EVP_CIPHER_CTX* cipher, Bytes input, BYTE* output) {
    constexpr std::size_t kPiece = std::size_t{1} << 30;
    while (!input.empty()) {
        const Bytes piece = input.first(std::min(input.size(), kPiece));
        int produced = 0;
        if (EVP_CipherUpdate(cipher, output, &produced, piece.data(),
                             static_cast<int>(piece.size())) != 1 ||
            static_cast<std::size_t>(produced) != piece.size()) {
            return false;
        }
        output += piece.size();
        input = input.subspan(piece.size());
    }
    return true;
}

// For decryption this is where the tag is checked.
bool Finish(EVP_CIPHER_CTX* cipher) {
    BYTE none[EVP_MAX_BLOCK_LENGTH];
    int produced = 0;
    return EVP_CipherFinal_ex(cipher, none, &produced) == 1;
}

// Writes the message of `plain` to `output`, which has the room for it.
bool MakeMessage(Bytes plain, const WCHAR* passPhrase, BYTE* output) {
    MessageId id;
    SecureBytes stretched;
    if (!keys.NewMessage(passPhrase, id, stretched)) return false;
    const CipherContext cipher = MessageCipher(stretched, id.counter, true);
    BYTE* ciphertext = output + kHeaderSize;
    if (!cipher || !Transform(cipher.get(), plain, ciphertext) || !Finish(cipher.get()) ||
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_AEAD_GET_TAG, kTagSize,
                            ciphertext + plain.size()) != 1) {
        return false;
    }
    std::ranges::copy(id.salt, output);
    std::ranges::copy(CounterBytes(id.counter), output + sizeof(Salt));
    return true;
}

// Writes the plaintext of a message to `output`, which has the room for it, if the message is
// genuine; otherwise what was written there is wiped.
bool OpenMessage(Bytes message, const WCHAR* passPhrase, BYTE* output) {
    MessageId id;
    std::ranges::copy(message.first(sizeof(Salt)), id.salt.begin());
    id.counter = ReadCounter(message.data() + sizeof(Salt));
    const Bytes ciphertext = message.subspan(kHeaderSize, message.size() - kOverhead);
    std::array<BYTE, kTagSize> tag;
    std::ranges::copy(message.last(kTagSize), tag.begin());

    SecureBytes stretched;
    if (!keys.KeyOf(passPhrase, id.salt, stretched)) return false;
    const CipherContext cipher = MessageCipher(stretched, id.counter, false);
    if (!cipher) return false;
    if (Transform(cipher.get(), ciphertext, output) &&
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_AEAD_SET_TAG, kTagSize, tag.data()) == 1 &&
        Finish(cipher.get())) {
        return true;
    }
    WipeMemory(output, ciphertext.size());
    return false;
}

int Encrypt(Bytes plain, BYTE* output, DWORD* outputSize, const WCHAR* passPhrase) {
    const std::size_t size = plain.size() + kOverhead;
    if (*outputSize < size) return kFailed;
    if (!MakeMessage(plain, passPhrase, output)) {
        WipeMemory(output, size);
        return kFailed;
    }
    *outputSize = static_cast<DWORD>(size);
    return 0;
}

int Decrypt(Bytes message, BYTE* output, DWORD* outputSize, const WCHAR* passPhrase) {
    if (message.size() < kOverhead || *outputSize < message.size() - kOverhead) return kFailed;
    if (!OpenMessage(message, passPhrase, output)) return kFailed;
    *outputSize = static_cast<DWORD>(message.size() - kOverhead);
    return 0;
}

bool HasMarker(Bytes message) {
    return message.size() >= kEncryptedFileMarker.size() &&
           std::equal(kEncryptedFileMarker.begin(), kEncryptedFileMarker.end(), message.begin());
}

// An output that will hold nothing may be null.
bool ArgumentsFit(const void* input, DWORD inputSize, const DWORD* outputSize) {
    return (input != nullptr || inputSize == 0) && outputSize != nullptr;
}

}  // namespace
}  // namespace utilsdll

using namespace utilsdll;

extern "C" int encrypt_buffer(const void* input, DWORD inputSize, void* output, DWORD* outputSize,
                              const WCHAR* passPhrase) {
    return Guarded(kFailed, [&] {
        if (!ArgumentsFit(input, inputSize, outputSize) || output == nullptr) return kFailed;
        return Encrypt({static_cast<const BYTE*>(input), inputSize}, static_cast<BYTE*>(output),
                       outputSize, passPhrase);
    });
}

extern "C" int decrypt_buffer(const void* input, DWORD inputSize, void* output, DWORD* outputSize,
                              const WCHAR* passPhrase) {
    return Guarded(kFailed, [&] {
        if (!ArgumentsFit(input, inputSize, outputSize)) return kFailed;
        if (output == nullptr && *outputSize != 0) return kFailed;
        const Bytes message(static_cast<const BYTE*>(input), inputSize);
        auto* const plain = static_cast<BYTE*>(output);
        // A salt may happen to spell the marker: what does not open behind it is tried whole.
        if (HasMarker(message) && Decrypt(message.subspan(kEncryptedFileMarker.size()), plain,
                                          outputSize, passPhrase) == 0) {
            return 0;
        }
        return Decrypt(message, plain, outputSize, passPhrase);
    });
}
