// The configuration lock password. Of it the client's state holds a record
//
//   version[1] salt[16] hash[32]
//
// whose hash is PBKDF2-HMAC-SHA512 of the password's UTF-16LE text. No record: no password is set.
// A record that cannot be read equals no password.
#include <openssl/crypto.h>
#include <openssl/rand.h>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "client/utilsdll/client_state.h"
#include "client/utilsdll/kdf.h"
#include "common/text.h"

namespace utilsdll {
namespace {

constexpr const WCHAR* kRecordName = TEXT("lock_password");
constexpr BYTE kVersion = 1;
constexpr int kRounds = 210'000;
constexpr std::size_t kSaltSize = 16;
constexpr std::size_t kHashSize = 32;
constexpr std::size_t kRecordSize = 1 + kSaltSize + kHashSize;

bool Hash(WStringView password, Bytes salt, SecureBytes& hash) {
    const Bytes text(reinterpret_cast<const BYTE*>(password.data()),
                     password.size() * sizeof(WCHAR));
    return Pbkdf2(text, Labelled("Sentrel configuration lock", salt), kRounds, kHashSize, hash);
}

bool EqualsLockPassword(WStringView password) {
    std::vector<BYTE> record;
    const StateBytes state = ReadStateBytes(kRecordName, record);
    if (password.empty()) return state == StateBytes::kNone;
    if (state != StateBytes::kRead || record.size() != kRecordSize || record[0] != kVersion) {
        return false;
    }
    SecureBytes hash;
    return Hash(password, Bytes(record).subspan(1, kSaltSize), hash) &&
           CRYPTO_memcmp(hash.data(), record.data() + 1 + kSaltSize, kHashSize) == 0;
}

bool SetLockPassword(WStringView password) {
    if (password.empty()) return RemoveState(kRecordName);
    std::vector<BYTE> record(1 + kSaltSize);
    record[0] = kVersion;
    SecureBytes hash;
    if (RAND_bytes(record.data() + 1, kSaltSize) != 1 ||
        !Hash(password, Bytes(record).subspan(1), hash)) {
        return false;
    }
    record.insert(record.end(), hash.begin(), hash.end());
    return WriteStateBytes(kRecordName, record);
}

}  // namespace
}  // namespace utilsdll

extern "C" bool cfg_sentrelmanager_cmp_pwd(const WCHAR* password) {
    return password != nullptr &&
           Guarded(false, [&] { return utilsdll::EqualsLockPassword(password); });
}

extern "C" bool cfg_sentrelmanager_set_pwd(const WCHAR* password) {
    return password != nullptr &&
           Guarded(false, [&] { return utilsdll::SetLockPassword(password); });
}
