#include "hive_database.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "last_error.h"

namespace platform {
namespace {

constexpr int kBusyMilliseconds = 10'000;
constexpr int kFormat = 1;  // user_version of the file

// Text is kept as UTF-16, big end first: every name that Windows allows survives, and the
// database's own order of texts is the order of their units. A key lies at most 512 below its root,
// as on Windows; that also bounds how far a deletion cascades.
constexpr char kSchema[] = R"sql(
PRAGMA page_size = 4096;
PRAGMA encoding = 'UTF-16be';
PRAGMA journal_mode = MEMORY;
PRAGMA synchronous = NORMAL;
BEGIN;
CREATE TABLE keys (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    parent INTEGER REFERENCES keys (id) ON DELETE CASCADE,
    depth INTEGER NOT NULL CHECK (depth <= 512),
    folded TEXT NOT NULL,
    name TEXT NOT NULL,
    UNIQUE (parent, folded));
CREATE TABLE entries (
    place INTEGER PRIMARY KEY,
    key INTEGER NOT NULL REFERENCES keys (id) ON DELETE CASCADE,
    folded TEXT NOT NULL,
    name TEXT NOT NULL,
    type INTEGER NOT NULL,
    data BLOB NOT NULL,
    UNIQUE (key, folded));
CREATE INDEX entries_by_place ON entries (key, place);
INSERT INTO keys (id, depth, folded, name) VALUES (1, 0, '', '');
PRAGMA user_version = 1;
COMMIT;
PRAGMA journal_mode = WAL;
)sql";

// Written lazily, as Windows writes its hives: a write goes to the write-ahead log without waiting
// for the disk, which only a checkpoint does. A process that dies leaves whole
// transactions in any case, because what it wrote is the kernel's; and since the log is synced
// before a checkpoint touches the hive, a power failure can lose the last writes but no more. The
// log also lets readers go on while somebody writes, and needs no repair by an account that may not
// write. It is kept small because the first process to open a hive reads it whole. The cache, in
// KiB, holds a hive of some hundred thousand values.
constexpr char kConnectionSettings[] = R"sql(
PRAGMA synchronous = NORMAL;
PRAGMA foreign_keys = ON;
PRAGMA wal_autocheckpoint = 250;
PRAGMA journal_size_limit = 1048576;
PRAGMA temp_store = MEMORY;
PRAGMA cache_size = -131072;
)sql";

// SQLITE_ERROR: not the tables that the statements expect.
constexpr std::pair<int, LSTATUS> kErrors[] = {
    {SQLITE_PERM, ERROR_ACCESS_DENIED},
    {SQLITE_AUTH, ERROR_ACCESS_DENIED},
    {SQLITE_READONLY, ERROR_ACCESS_DENIED},
    {SQLITE_CANTOPEN, ERROR_ACCESS_DENIED},
    {SQLITE_BUSY, ERROR_BUSY},
    {SQLITE_LOCKED, ERROR_BUSY},
    {SQLITE_NOMEM, ERROR_NOT_ENOUGH_MEMORY},
    {SQLITE_FULL, ERROR_DISK_FULL},
    {SQLITE_TOOBIG, ERROR_NO_SYSTEM_RESOURCES},
    {SQLITE_CONSTRAINT, ERROR_INVALID_PARAMETER},
    {SQLITE_CORRUPT, ERROR_BADDB},
    {SQLITE_NOTADB, ERROR_BADDB},
    {SQLITE_ERROR, ERROR_BADDB},
};

LSTATUS ErrorOfSqlite(int result) {
    const auto* const known =
        std::ranges::find(kErrors, result & 0xFF, &std::pair<int, LSTATUS>::first);
    return known == std::end(kErrors) ? LSTATUS{ERROR_REGISTRY_IO_FAILED} : known->second;
}

void Check(int result) {
    if (result != SQLITE_OK) Throw(ErrorOfSqlite(result));
}

[[noreturn]] void ThrowErrno() {
    Throw(static_cast<LSTATUS>(ErrorOfErrno(errno)));
}

// Gives a file its permissions, whatever the process's mask of file modes is, and closes it.
void FinishFile(int file, mode_t mode) {
    const bool done = fchmod(file, mode) == 0;
    const int error = errno;
    close(file);
    errno = error;
    if (!done) ThrowErrno();
}

// Makes an empty file; one that stands there already is left alone.
void MakeEmptyFile(const std::string& path, mode_t mode) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file >= 0) return FinishFile(file, mode);
    if (errno != EEXIST) ThrowErrno();
}

// A file under a temporary name, removed by the destructor.
class TemporaryFile {
  public:
    TemporaryFile(const std::string& prefix, mode_t mode) : path_(prefix + ".XXXXXX") {
        const int file = mkostemp(path_.data(), O_CLOEXEC);
        if (file < 0) ThrowErrno();
        FinishFile(file, mode);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { unlink(path_.c_str()); }
    const std::string& Path() const { return path_; }

  private:
    std::string path_;
};

sqlite3* Open(const std::string& path, int flags) {
    sqlite3* database = nullptr;
    const int result =
        sqlite3_open_v2(path.c_str(), &database, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (result != SQLITE_OK) sqlite3_close(database);
    Check(result);
    return database;
}

}  // namespace

void HiveDatabase::Create(const std::string& path, mode_t mode) {
    // 1. An empty hive under a temporary name.
    const TemporaryFile file(path, mode);
    {
        const std::unique_ptr<sqlite3, CloseDatabase> database(
            Open(file.Path(), SQLITE_OPEN_READWRITE));
        Check(sqlite3_exec(database.get(), kSchema, nullptr, nullptr, nullptr));
    }
    // 2. The files beside it. They are never removed: an account that may only read cannot make
    // them.
    MakeEmptyFile(path + "-wal", mode);
    MakeEmptyFile(path + "-shm", mode);
    // 3. Its name, unless another process was first.
    if (link(file.Path().c_str(), path.c_str()) != 0 && errno != EEXIST) ThrowErrno();
}

HiveDatabase::HiveDatabase(const std::string& path, bool writable)
    : writable_(writable),
      database_(Open(path, writable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY)) {
    sqlite3* const database = database_.get();
    Check(sqlite3_busy_timeout(database, kBusyMilliseconds));
    int keep = 1;
    Check(sqlite3_file_control(database, "main", SQLITE_FCNTL_PERSIST_WAL, &keep));
    // An administrator may read the hive of any account: no code in the file may run.
    Check(sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr));
    Check(sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr));
    Check(sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr));
    Check(sqlite3_exec(database, kConnectionSettings, nullptr, nullptr, nullptr));
    // The first read opens the files beside the hive too, while the thread has the account that the
    // connection is made for.
    int format = 0;
    const auto readFormat = [](void* result, int, char** texts, char**) {
        *static_cast<int*>(result) = std::atoi(texts[0]);
        return 0;
    };
    Check(sqlite3_exec(database, "PRAGMA user_version", readFormat, &format, nullptr));
    if (format != kFormat) Throw(ERROR_BADDB);
}

HiveDatabase::State HiveDatabase::CurrentState() {
    Run byOthers(*this, "PRAGMA data_version");
    byOthers.Step();
    return {byOthers.Number(0), sqlite3_total_changes64(database_.get())};
}

sqlite3_stmt* HiveDatabase::Statement(const char* sql) {
    auto& statement = statements_[sql];
    if (!statement) {
        sqlite3_stmt* prepared = nullptr;
        Check(sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared,
                                 nullptr));
        statement.reset(prepared);
    }
    return statement.get();
}

HiveDatabase::Run::Run(HiveDatabase& database, const char* sql)
    : statement_(database.Statement(sql)) {}

HiveDatabase::Run::~Run() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

HiveDatabase::Run& HiveDatabase::Run::Bind(std::int64_t number) {
    Check(sqlite3_bind_int64(statement_, ++bound_, number));
    return *this;
}

// A null pointer would bind a null instead of an empty text.
HiveDatabase::Run& HiveDatabase::Run::Bind(std::u16string_view text) {
    const void* units = text.empty() ? u"" : text.data();
    Check(sqlite3_bind_text64(statement_, ++bound_, static_cast<const char*>(units),
                              text.size() * sizeof(char16_t), SQLITE_STATIC, SQLITE_UTF16));
    return *this;
}

HiveDatabase::Run& HiveDatabase::Run::Bind(const BYTE* bytes, std::size_t size) {
    const void* data = size == 0 ? "" : static_cast<const void*>(bytes);
    Check(sqlite3_bind_blob64(statement_, ++bound_, data, size, SQLITE_STATIC));
    return *this;
}

bool HiveDatabase::Run::Step() {
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) Throw(ErrorOfSqlite(result));
    return result == SQLITE_ROW;
}

std::u16string HiveDatabase::Run::Text(int column) const {
    const auto* units = static_cast<const char16_t*>(sqlite3_column_text16(statement_, column));
    if (units == nullptr) return {};
    const auto bytes = static_cast<std::size_t>(sqlite3_column_bytes16(statement_, column));
    return {units, bytes / sizeof(char16_t)};
}

std::vector<BYTE> HiveDatabase::Run::Bytes(int column) const {
    const auto* bytes = static_cast<const BYTE*>(sqlite3_column_blob(statement_, column));
    if (bytes == nullptr) return {};
    return {bytes, bytes + sqlite3_column_bytes(statement_, column)};
}

HiveDatabase::Transaction::Transaction(HiveDatabase& database, bool writes) : database_(database) {
    Run(database_, writes ? "BEGIN IMMEDIATE" : "BEGIN").Step();
}

HiveDatabase::Transaction::~Transaction() {
    if (!open_) return;
    try {
        Run(database_, "ROLLBACK").Step();
    } catch (const HiveError&) {
        // The failure that brought us here has rolled it back already.
    }
}

void HiveDatabase::Transaction::Commit() {
    Run(database_, "COMMIT").Step();
    open_ = false;
}

}  // namespace platform
