// Guards around SQLite's own interface.
#pragma once

#include "usage/store/packing.h"

#include <cstdint>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <string_view>

namespace usage {

class SqlError : public std::runtime_error {
  public:
    explicit SqlError(const std::string &what, int code = SQLITE_ERROR)
        : std::runtime_error(what), code_(code) {}
    // SQLite's primary result code.
    [[nodiscard]] int code() const { return code_ & 0xFF; }

  private:
    int code_;
};

// What the file holds is no sound database.
class SqlDamage : public SqlError {
  public:
    explicit SqlDamage(const std::string &what) : SqlError(what, SQLITE_CORRUPT) {}
};

class Database {
  public:
    // Opens or makes the file, unless flags of sqlite3_open_v2 say another thing.
    explicit Database(const std::string &name,
                      int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);

    void run(const char *sql); // one or several statements without results
    std::int64_t number(const char *sql);
    std::string text(const char *sql);
    [[nodiscard]] sqlite3 *raw() const { return database_.get(); }

  private:
    struct Closer {
        void operator()(sqlite3 *database) const { sqlite3_close_v2(database); }
    };
    std::unique_ptr<sqlite3, Closer> database_;
};

class Statement {
  public:
    Statement(const Database &database, const char *sql);

    // Parameters in order; views must live until the next reset.
    Statement &bind(std::int64_t value);
    Statement &bind(std::string_view text);
    Statement &bind(PackedView value);
    Statement &bindNull();

    // True with a row.
    bool step();
    // Runs it and makes it ready for other parameters.
    void run();
    void reset();

    [[nodiscard]] std::int64_t number(int column) const;
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] PackedView bytes(int column) const; // until the next step
    [[nodiscard]] bool isNull(int column) const;

  private:
    void check(int result);

    struct Finalizer {
        void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
    };
    sqlite3 *database_;
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
    int next_ = 1;
};

// Rolled back unless committed.
class Transaction {
  public:
    explicit Transaction(Database &database);
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    ~Transaction();
    void commit();

  private:
    Database &database_;
    bool open_ = true;
};

} // namespace usage
