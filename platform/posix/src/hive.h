// The hives: trees of keys and values, one for the machine and one for each account.
#pragma once

#include <sys/types.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "hive_database.h"

namespace platform {

struct HiveValue {
    std::u16string name;
    DWORD type = 0;
    std::vector<BYTE> data;
};

// A key with everything below it.
struct HiveTree {
    std::u16string name;
    std::vector<HiveValue> values;
    std::vector<HiveTree> subkeys;
};

// The names on the way from one key to another.
using KeyPath = std::vector<std::u16string>;

// One hive, shared by all threads. A hive whose file is missing is an empty one: it can be read by
// everybody, and its file is made by the first write. Functions throw HiveError: ERROR_KEY_DELETED
// when the key itself is gone, else what is said with them.
//
// The process has one connection to each hive. It is made at the first use, with the rights of the
// account that the thread then has. A process that forks has to run another program at once.
class Hive {
  public:
    static std::shared_ptr<Hive> OfMachine() { return Of(std::nullopt); }
    static std::shared_ptr<Hive> OfAccount(uid_t account) { return Of(account); }

    // What the thread's account may do with the hive.
    bool MayRead() const;
    bool MayWrite() const;

    // The key at the end of a path; nothing when it is missing.
    std::optional<KeyId> Find(KeyId from, const KeyPath& path);
    // The same, made with all keys on its way when missing.
    struct Created {
        KeyId key;
        bool isNew;
    };
    Created Create(KeyId from, const KeyPath& path);
    // The subkey at an index in the order of names; ERROR_NO_MORE_ITEMS.
    std::u16string SubkeyAt(KeyId key, DWORD index);
    DWORD CountValues(KeyId key);
    KeyPath PathOf(KeyId key);
    // Deletes a key without subkeys (else ERROR_ACCESS_DENIED), or one with everything below it.
    // The root stays (ERROR_ACCESS_DENIED).
    void DeleteLeaf(KeyId key);
    void DeleteTree(KeyId key);
    HiveTree ReadTree(KeyId key);
    // Writes values and subkeys of the tree over those of the key.
    void WriteTree(KeyId key, const HiveTree& tree);

    // The value of a name, and the one at an index: ERROR_FILE_NOT_FOUND, ERROR_NO_MORE_ITEMS.
    HiveValue Read(KeyId key, const std::u16string& name);
    HiveValue ValueAt(KeyId key, DWORD index);
    void Write(KeyId key, const HiveValue& value);
    // ERROR_FILE_NOT_FOUND when there is no such value.
    void DeleteValue(KeyId key, const std::u16string& name);

    // "MACHINE", or "USER\" and the number of the account.
    std::u16string Name() const;

    // For Of().
    explicit Hive(std::optional<uid_t> account);

  private:
    // The connection, for as long as this object lives.
    class Use;

    // Where an enumeration by index stands: the next item is found from here instead of from the
    // first one, as long as nothing in the hive changes.
    template <typename Place>
    struct Position {
        KeyId key = 0;
        DWORD index = 0;
        Place place{};
        HiveDatabase::State state;
    };

    static std::shared_ptr<Hive> Of(std::optional<uid_t> account);
    std::string FilePath() const;
    void Connect(bool forWriting);
    void MakeFile() const;

    const std::optional<uid_t> account_;  // none: the machine
    const std::string folder_;
    std::mutex mutex_;
    std::unique_ptr<HiveDatabase> database_;
    Position<std::u16string> lastSubkey_;  // by its folded name
    Position<std::int64_t> lastValue_;     // by its place
};

}  // namespace platform
