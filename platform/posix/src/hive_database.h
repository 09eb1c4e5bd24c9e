// The file of a hive: an SQLite database, the connection to it, and the statements that are run on
// it. Failures are thrown as HiveError; the registry's calls turn them into their return values.
#pragma once

#include <sqlite3.h>
#include <winerror.h>
#include <winnt.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// A Windows error code on its way to the caller.
struct HiveError {
    LSTATUS code;
};

[[noreturn]] inline void Throw(LSTATUS code) {
    throw HiveError{code};
}

using KeyId = std::int64_t;

// The key that a hive consists of when it is empty. Ids are never used again: a handle whose key
// was deleted does not come to name another.
inline constexpr KeyId kRootKey = 1;

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

    // One run of a statement, whose text is a literal: bind its parameters, step through its rows;
    // it is made ready for the next run at the end of this one. Views of columns are good until the
    // next step.
    class Run {
      public:
        Run(HiveDatabase& database, const char* sql);
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
        Transaction(HiveDatabase& database, bool writes);
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
    sqlite3_stmt* Statement(const char* sql);

    bool writable_;
    std::unique_ptr<sqlite3, CloseDatabase> database_;
    // Prepared at their first use. They go before the connection they belong to.
    std::map<std::string_view, std::unique_ptr<sqlite3_stmt, FinalizeStatement>> statements_;
};

}  // namespace platform
