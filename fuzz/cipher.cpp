// The cipher's decryption: it opens what was encrypted and nothing else.
//
// The input is a plain text behind three bytes: which byte of its message is changed (two bytes,
// little end first, counted from the end where the message is shorter) and by which bits; no bits,
// no change. A changed salt selects another key; that would cost a key stretch each, so the salt is
// changed by the first few inputs only.
#include <utilsdll.h>

#include <optional>
#include <string>

#include "fuzz/machine.h"

namespace {

constexpr std::size_t kOverhead = 28;
constexpr std::size_t kSaltSize = 8;
constexpr const WCHAR* kPassPhrase = TEXT("fuzz pass phrase");

std::string MessageOf(const std::string& plain) {
    std::string message(plain.size() + kOverhead, '\0');
    auto size = static_cast<DWORD>(message.size());
    Promise(encrypt_buffer(plain.data(), static_cast<DWORD>(plain.size()), message.data(), &size,
                           kPassPhrase) == 0 &&
                size == message.size(),
            "every text is encrypted");
    return message;
}

// The text that the message opens to, if it does.
std::optional<std::string> Opened(const std::string& message) {
    std::string plain(message.size(), '#');
    auto size = static_cast<DWORD>(message.size());
    if (decrypt_buffer(message.data(), size, plain.data(), &size, kPassPhrase) != 0) return {};
    return plain.substr(0, size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    MachineFolder();
    if (size < 3) return 0;
    const std::size_t position = data[0] + data[1] * 256u;
    const auto bits = data[2];
    const std::string plain(reinterpret_cast<const char*>(data) + 3, size - 3);
    const std::string unchanged = MessageOf(plain);

    static int changedSalts = 0;
    std::size_t place = position % unchanged.size();
    if (place < kSaltSize && ++changedSalts > 8) place += kSaltSize;
    std::string changed = unchanged;
    changed[place] = static_cast<char>(changed[place] ^ bits);

    Promise(Opened(changed).has_value() == (bits == 0), "a changed message does not open");
    Promise(Opened("Enc " + unchanged) == plain, "a marked message opens");
    Promise(!Opened(unchanged.substr(0, place)), "a cut message does not open");
    return 0;
}
