// The configuration lock password. Of it the client's state holds a record
//
//   version[1] salt[16] hash[32]
//
// whose hash is PBKDF2-HMAC-SHA512 of the password's UTF-16LE text. No record: no password is set.
// A record that cannot be read equals no password.
#include "client/utilsdll/lock_password.h"

#include <openssl/crypto.h>

#include <mutex>
#include <utility>

#include "client/include/utilsdll.h"
#include "client/utilsdll/boundary.h"
#include "client/utilsdll/client_state.h"
#include "client/utilsdll/kdf.h"
#include "client/utilsdll/random.h"
#include "client/utilsdll/registry_lock.h"
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

// The record of the password that this process was found to know; empty before that.
class ConfirmedRecord {
  public:
    void Set(std::vector<BYTE> record) {
        const std::lock_guard lock(mutex_);
        record_ = std::move(record);
    }
    bool Equals(const std::vector<BYTE>& record) {
        const std::lock_guard lock(mutex_);
        return !record_.empty() && record_ == record;
    }

  private:
    std::mutex mutex_;
    std::vector<BYTE> record_;
};
ConfirmedRecord confirmed;

bool MatchesRecord(WStringView password, const std::vector<BYTE>& record) {
    if (record.size() != kRecordSize || record[0] != kVersion) return false;
    SecureBytes hash;
    return Hash(password, Bytes(record).subspan(1, kSaltSize), hash) &&
           CRYPTO_memcmp(hash.data(), record.data() + 1 + kSaltSize, kHashSize) == 0;
}

bool EqualsLockPassword(WStringView password) {
    if (password.empty()) return !IsLockPasswordSet();
    std::vector<BYTE> record;
    if (ReadStateBytes(kRecordName, record) != StateBytes::kRead ||
        !MatchesRecord(password, record)) {
        return false;
    }
    confirmed.Set(std::move(record));
    return true;
}

bool SetLockPassword(WStringView password) {
    // The lock goes first: it must not come back with the next password.
    if (password.empty()) return ClearRegistryLock() && RemoveState(kRecordName);
    std::vector<BYTE> record(1 + kSaltSize);
    record[0] = kVersion;
    SecureBytes hash;
    if (!DrawRandom(std::span(record).subspan(1)) ||
        !Hash(password, Bytes(record).subspan(1), hash)) {
        return false;
    }
    record.insert(record.end(), hash.begin(), hash.end());
    return WriteStateBytes(kRecordName, record);
}

}  // namespace

bool IsLockPasswordSet() {
    std::vector<BYTE> record;
    return ReadStateBytes(kRecordName, record) != StateBytes::kNone;
}

bool IsLockPasswordConfirmed() {
    std::vector<BYTE> record;
    return ReadStateBytes(kRecordName, record) == StateBytes::kRead && confirmed.Equals(record);
}

}  // namespace utilsdll

extern "C" bool cfg_sentrelmanager_cmp_pwd(const WCHAR* password) {
    return password != nullptr &&
           Guarded(false, [&] { return utilsdll::EqualsLockPassword(password); });
}

extern "C" bool cfg_sentrelmanager_set_pwd(const WCHAR* password) {
    return password != nullptr &&
           Guarded(false, [&] { return utilsdll::SetLockPassword(password); });
}
