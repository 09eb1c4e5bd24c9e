// The file of a hive: an SQLite database, the connection to it, and the statements that are run on
// it. Failures are thrown as HiveError; the registry's calls turn them into their return values.
#pragma once

#include <sqlite3.h>
#include <winerror.h>
#include <winnt.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// A Windows error code on its way to the caller.
struct HiveError {
    LSTATUS code;
};

using KeyId = std::int64_t;

// The key that a hive consists of when it is empty. Ids are never used again: a handle whose key
// was deleted does not come to name another.
inline constexpr KeyId kRootKey = 1;

// The statements on a hive. Parameters are named ?1, ?2 ... in the order of their table.
enum class Query {
    kBeginRead,
    kBeginWrite,
    kCommit,
    kRollback,
    kKeyExists,      // ?1 key
    kFindSubkey,     // ?1 key, ?2 folded name -> key
    kAddSubkey,      // ?1 key, ?2 folded name, ?3 name
    kState,          // -> a number that changes with every change by another connection
    kSubkeyFrom,     // ?1 key, ?2 folded name, ?3 how many further -> name, folded name
    kSubkeys,        // ?1 key -> key, name
    kParent,         // ?1 key -> key, name
    kDeleteLeaf,     // ?1 key
    kDeleteTree,     // ?1 key
    kReadValue,      // ?1 key, ?2 folded name -> type (null: no such value), data
    kWriteValue,     // ?1 key, ?2 folded name, ?3 name, ?4 type, ?5 data
    kDeleteValue,    // ?1 key, ?2 folded name
    kValueFrom,      // ?1 key, ?2 place, ?3 how many further -> name, type, data, place
    kValues,         // ?1 key -> name, type, data
    kSubkeySummary,  // ?1 key -> count, longest name in units
    kValueSummary,   // ?1 key -> count, longest name in units, longest data in bytes
    kCount
};

class HiveDatabase {
  public:
    // Makes the file of an empty hive unless it is there, with these permissions. It gets its name
    // only when it is complete.
    static void Create(const std::string& path, mode_t mode);

    // Connects to an existing hive.
    HiveDatabase(const std::string& path, bool writable);

    bool Writable() const { return writable_; }
    // Rows that the last statement changed.
    int Changes() const { return sqlite3_changes(database_.get()); }
    // The state of the hive as it is now: equal ones mean that nothing changed in between.
    struct State {
        std::int64_t byOthers = -1;
        std::int64_t byThis = -1;
        bool operator==(const State&) const = default;
    };
    State CurrentState();
    // The row that was added last.
    KeyId LastAdded() const { return sqlite3_last_insert_rowid(database_.get()); }
    // Brings everything that was written to the disk.
    void Flush();

    // One run of a statement: bind its parameters, step through its rows; it is made ready for the
    // next run at the end of this one. Views of columns are good until the next step.
    class Run {
      public:
        Run(HiveDatabase& database, Query query);
        Run(const Run&) = delete;
        Run& operator=(const Run&) = delete;
        ~Run();

        Run& Bind(std::int64_t number);
        Run& Bind(std::u16string_view text);
        Run& Bind(const BYTE* bytes, std::size_t size);
        bool Step();

        bool IsNull(int column) const {
            return sqlite3_column_type(statement_, column) == SQLITE_NULL;
        }
        std::int64_t Number(int column) const { return sqlite3_column_int64(statement_, column); }
        std::u16string Text(int column) const;
        std::vector<BYTE> Bytes(int column) const;

      private:
        sqlite3_stmt* statement_;
        int bound_ = 0;
    };

    // Several runs seen or done as one; what was not committed is undone at the end.
    class Transaction {
      public:
        Transaction(HiveDatabase& database, Query begin);
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;
        ~Transaction();
        void Commit();

      private:
        HiveDatabase& database_;
        bool open_ = true;
    };

  private:
    struct CloseDatabase {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };
    struct FinalizeStatement {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    sqlite3_stmt* Statement(Query query);

    bool writable_;
    std::unique_ptr<sqlite3, CloseDatabase> database_;
    // Prepared at their first use. They go before the connection they belong to.
    std::array<std::unique_ptr<sqlite3_stmt, FinalizeStatement>,
               static_cast<std::size_t>(Query::kCount)>
        statements_;
};

}  // namespace platform
