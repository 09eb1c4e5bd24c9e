#include "hive.h"

#include <errhandlingapi.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "endpoint.h"
#include "text.h"
#include "thread_identity.h"

namespace platform {
namespace {

using Run = HiveDatabase::Run;
using Transaction = HiveDatabase::Transaction;

// What the thread's account may do, which need not be the process's.
bool Permits(const std::string& path, int rights) {
    return faccessat(AT_FDCWD, path.c_str(), rights, AT_EACCESS) == 0;
}

// Throws ERROR_KEY_DELETED when the key itself is gone.
void DemandKey(HiveDatabase& database, KeyId key) {
    if (!Run(database, "SELECT 1 FROM keys WHERE id = ?1").Bind(key).Step()) {
        Throw(ERROR_KEY_DELETED);
    }
}

// For what is not in the key: ERROR_KEY_DELETED when the key itself is gone, else the code.
[[noreturn]] void ThrowMissing(HiveDatabase& database, KeyId key, LSTATUS code) {
    DemandKey(database, key);
    Throw(code);
}

std::optional<KeyId> FindSubkey(HiveDatabase& database, KeyId key, const std::u16string& name) {
    const std::u16string folded = UpperCase(name);
    Run find(database, "SELECT id FROM keys WHERE parent = ?1 AND folded = ?2");
    if (!find.Bind(key).Bind(folded).Step()) return std::nullopt;
    return find.Number(0);
}

KeyId AddSubkey(HiveDatabase& database, KeyId key, const std::u16string& name) {
    const std::u16string folded = UpperCase(name);
    Run(database,
        "INSERT INTO keys (parent, depth, folded, name)"
        " SELECT id, depth + 1, ?2, ?3 FROM keys WHERE id = ?1")
        .Bind(key)
        .Bind(folded)
        .Bind(name)
        .Step();
    if (database.Changes() == 0) Throw(ERROR_KEY_DELETED);
    return database.LastAdded();
}

void WriteValue(HiveDatabase& database, KeyId key, const HiveValue& value) {
    const std::u16string folded = UpperCase(value.name);
    Run(database,
        "INSERT INTO entries (key, folded, name, type, data)"
        " SELECT id, ?2, ?3, ?4, ?5 FROM keys WHERE id = ?1"
        " ON CONFLICT (key, folded) DO UPDATE SET type = excluded.type, data = excluded.data")
        .Bind(key)
        .Bind(folded)
        .Bind(value.name)
        .Bind(value.type)
        .Bind(value.data.data(), value.data.size())
        .Step();
    if (database.Changes() == 0) Throw(ERROR_KEY_DELETED);
}

HiveValue ValueOf(const Run& row) {
    return {row.Text(0), static_cast<DWORD>(row.Number(1)), row.Bytes(2)};
}

// Steps to the item of a key at an index, from the last position where that is one on the way;
// otherwise from the first item. The position moves there but for its place, which the caller
// takes from the row. False when there are no more items.
template <typename Position>
bool StepTo(HiveDatabase& database, Run& from, Position& last, KeyId key, DWORD index) {
    const HiveDatabase::State state = database.CurrentState();
    if (last.key != key || last.index > index || last.state != state) last = {key, 0, {}, state};
    if (!from.Bind(key).Bind(last.place).Bind(index - last.index).Step()) return false;
    last.index = index;
    return true;
}

HiveTree ReadTreeOf(HiveDatabase& database, KeyId key, std::u16string name) {
    HiveTree tree{std::move(name), {}, {}};
    {
        Run values(database, "SELECT name, type, data FROM entries WHERE key = ?1 ORDER BY place");
        values.Bind(key);
        while (values.Step()) tree.values.push_back(ValueOf(values));
    }
    std::vector<KeyId> ids;
    {
        Run subkeys(database, "SELECT id, name FROM keys WHERE parent = ?1 ORDER BY folded");
        subkeys.Bind(key);
        while (subkeys.Step()) {
            ids.push_back(subkeys.Number(0));
            tree.subkeys.push_back({subkeys.Text(1), {}, {}});
        }
    }
    for (std::size_t i = 0; i < ids.size(); ++i) {
        tree.subkeys[i] = ReadTreeOf(database, ids[i], std::move(tree.subkeys[i].name));
    }
    return tree;
}

void WriteTreeOf(HiveDatabase& database, KeyId key, const HiveTree& tree) {
    for (const HiveValue& value : tree.values) WriteValue(database, key, value);
    for (const HiveTree& subkey : tree.subkeys) {
        const auto found = FindSubkey(database, key, subkey.name);
        WriteTreeOf(database, found ? *found : AddSubkey(database, key, subkey.name), subkey);
    }
}

}  // namespace

// Holds the hive's lock. For reading, nothing may come of it: the hive has no file yet.
class Hive::Use {
  public:
    Use(Hive& hive, bool forWriting) : lock_(hive.mutex_) {
        hive.Connect(forWriting);
        database_ = hive.database_.get();
    }
    explicit operator bool() const { return database_ != nullptr; }
    HiveDatabase& operator*() const { return *database_; }
    HiveDatabase* operator->() const { return database_; }

  private:
    std::lock_guard<std::mutex> lock_;
    HiveDatabase* database_;
};

std::shared_ptr<Hive> Hive::Of(std::optional<uid_t> account) {
    // Never destroyed: keys are closed, and hives read, by destructors that may run after this
    // library's own.
    static auto& mutex = *new std::mutex;
    static auto& hives = *new std::map<std::optional<uid_t>, std::shared_ptr<Hive>>;
    const std::lock_guard lock(mutex);
    auto& hive = hives[account];
    if (!hive) hive = std::make_shared<Hive>(account);
    return hive;
}

Hive::Hive(std::optional<uid_t> account)
    : account_(account),
      folder_(EndpointFolder() +
              (account ? "/users/" + std::to_string(*account) : std::string("/registry"))) {}

std::u16string Hive::Name() const {
    return account_ ? u"USER\\" + WideOf(std::to_string(*account_)) : u"MACHINE";
}

std::string Hive::FilePath() const {
    return folder_ + (account_ ? "/user.db" : "/machine.db");
}

bool Hive::MayRead() const {
    return Permits(FilePath(), R_OK) || errno == ENOENT;
}

bool Hive::MayWrite() const {
    if (Permits(FilePath(), R_OK | W_OK)) return true;
    if (errno != ENOENT || (account_ && *account_ != ThreadAccount())) return false;
    // The file can be made where the nearest folder that exists can be written.
    std::string folder = folder_;
    while (!Permits(folder, F_OK) && errno == ENOENT && folder.size() > 1) {
        folder.resize(std::max<std::size_t>(folder.rfind('/'), 1));
    }
    return Permits(folder, W_OK | X_OK);
}

void Hive::MakeFile() const {
    // An account's hive is its own to make: a folder made by another would keep it out for ever.
    if (account_ && *account_ != ThreadAccount()) Throw(ERROR_ACCESS_DENIED);
    // Whoever makes the machine makes the place of the accounts too, where they may not.
    EndpointSubfolder("users", FolderUse::kEveryoneWrites);
    const std::string folder = account_ ? EndpointUserFolder(*account_)
                                        : EndpointSubfolder("registry", FolderUse::kOwnerWrites);
    if (folder.empty()) Throw(static_cast<LSTATUS>(GetLastError()));
    HiveDatabase::Create(FilePath(), account_ ? 0600 : 0644);
}

void Hive::Connect(bool forWriting) {
    if (database_ && (database_->Writable() || !forWriting)) return;
    const std::string path = FilePath();
    if (!Permits(path, F_OK)) {
        if (errno != ENOENT) Throw(ERROR_ACCESS_DENIED);
        if (!forWriting) return;
        MakeFile();
    }
    // Only the account itself can have made its folder, unless somebody planted it.
    struct stat info {};
    if (account_ && (lstat(folder_.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) ||
                     info.st_uid != *account_)) {
        Throw(ERROR_ACCESS_DENIED);
    }
    const bool writable = Permits(path, R_OK | W_OK);
    if (forWriting && !writable) Throw(ERROR_ACCESS_DENIED);
    database_.reset();
    database_ = std::make_unique<HiveDatabase>(path, writable);
}

std::optional<KeyId> Hive::Find(KeyId from, const KeyPath& path) {
    const Use use(*this, false);
    if (!use) return path.empty() ? std::optional(from) : std::nullopt;
    Transaction whole(*use, false);
    DemandKey(*use, from);
    std::optional<KeyId> key = from;
    for (auto name = path.begin(); key && name != path.end(); ++name) {
        key = FindSubkey(*use, *key, *name);
    }
    return key;
}

Hive::Created Hive::Create(KeyId from, const KeyPath& path) {
    const Use use(*this, true);
    Transaction whole(*use, true);
    DemandKey(*use, from);
    Created result{from, false};
    for (const std::u16string& name : path) {
        const auto found = result.isNew ? std::nullopt : FindSubkey(*use, result.key, name);
        result = found ? Created{*found, false} : Created{AddSubkey(*use, result.key, name), true};
    }
    whole.Commit();
    return result;
}

std::u16string Hive::SubkeyAt(KeyId key, DWORD index) {
    const Use use(*this, false);
    if (!use) Throw(ERROR_NO_MORE_ITEMS);
    Transaction whole(*use, false);
    Run at(*use,
           "SELECT name, folded FROM keys WHERE parent = ?1 AND folded >= ?2 ORDER BY folded"
           " LIMIT 1 OFFSET ?3");
    if (!StepTo(*use, at, lastSubkey_, key, index)) ThrowMissing(*use, key, ERROR_NO_MORE_ITEMS);
    lastSubkey_.place = at.Text(1);
    return at.Text(0);
}

DWORD Hive::CountValues(KeyId key) {
    const Use use(*this, false);
    if (!use) return 0;
    Transaction whole(*use, false);
    DemandKey(*use, key);
    Run count(*use, "SELECT count(*) FROM entries WHERE key = ?1");
    count.Bind(key).Step();
    return static_cast<DWORD>(count.Number(0));
}

KeyPath Hive::PathOf(KeyId key) {
    const Use use(*this, false);
    KeyPath path;
    if (!use) return path;
    Transaction whole(*use, false);
    while (key != kRootKey) {
        Run parent(*use, "SELECT parent, name FROM keys WHERE id = ?1");
        if (!parent.Bind(key).Step()) Throw(ERROR_KEY_DELETED);
        path.insert(path.begin(), parent.Text(1));
        key = parent.Number(0);
    }
    return path;
}

void Hive::DeleteLeaf(KeyId key) {
    if (key == kRootKey) Throw(ERROR_ACCESS_DENIED);
    const Use use(*this, true);
    Run(*use,
        "DELETE FROM keys WHERE id = ?1 AND NOT EXISTS (SELECT 1 FROM keys WHERE parent = ?1)")
        .Bind(key)
        .Step();
    if (use->Changes() == 0) ThrowMissing(*use, key, ERROR_ACCESS_DENIED);
}

void Hive::DeleteTree(KeyId key) {
    if (key == kRootKey) Throw(ERROR_ACCESS_DENIED);
    const Use use(*this, true);
    Run(*use, "DELETE FROM keys WHERE id = ?1").Bind(key).Step();
    if (use->Changes() == 0) Throw(ERROR_KEY_DELETED);
}

HiveTree Hive::ReadTree(KeyId key) {
    const Use use(*this, false);
    if (!use) return {};
    Transaction whole(*use, false);
    DemandKey(*use, key);
    return ReadTreeOf(*use, key, {});
}

void Hive::WriteTree(KeyId key, const HiveTree& tree) {
    const Use use(*this, true);
    Transaction whole(*use, true);
    DemandKey(*use, key);
    WriteTreeOf(*use, key, tree);
    whole.Commit();
}

HiveValue Hive::Read(KeyId key, const std::u16string& name) {
    const Use use(*this, false);
    if (!use) Throw(ERROR_FILE_NOT_FOUND);
    const std::u16string folded = UpperCase(name);
    Run read(*use,
             "SELECT type, data FROM keys LEFT JOIN entries ON key = id AND entries.folded = ?2"
             " WHERE id = ?1");
    if (!read.Bind(key).Bind(folded).Step()) Throw(ERROR_KEY_DELETED);
    if (read.IsNull(0)) Throw(ERROR_FILE_NOT_FOUND);
    return {name, static_cast<DWORD>(read.Number(0)), read.Bytes(1)};
}

HiveValue Hive::ValueAt(KeyId key, DWORD index) {
    const Use use(*this, false);
    if (!use) Throw(ERROR_NO_MORE_ITEMS);
    Transaction whole(*use, false);
    Run at(
        *use,
        "SELECT name, type, data, place FROM entries WHERE key = ?1 AND place >= ?2 ORDER BY place"
        " LIMIT 1 OFFSET ?3");
    if (!StepTo(*use, at, lastValue_, key, index)) ThrowMissing(*use, key, ERROR_NO_MORE_ITEMS);
    lastValue_.place = at.Number(3);
    return ValueOf(at);
}

void Hive::Write(KeyId key, const HiveValue& value) {
    const Use use(*this, true);
    WriteValue(*use, key, value);
}

void Hive::DeleteValue(KeyId key, const std::u16string& name) {
    const Use use(*this, true);
    const std::u16string folded = UpperCase(name);
    Run(*use, "DELETE FROM entries WHERE key = ?1 AND folded = ?2").Bind(key).Bind(folded).Step();
    if (use->Changes() == 0) ThrowMissing(*use, key, ERROR_FILE_NOT_FOUND);
}

}  // namespace platform
