// The little of SQLite that the outbox needs, with exceptions in place of status codes.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace uplink {

// The database can't do what it is asked for at present: disk full, no right, in use.
class DatabaseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What the file holds is no longer a sound database.
class DatabaseDamaged : public DatabaseError {
  public:
    using DatabaseError::DatabaseError;
};

class Database;

// One prepared statement, used once.
class Statement {
  public:
    Statement(Database &database, std::string_view sql);

    // The next parameter, in the statement's order. What is bound must outlive the statement.
    Statement &bind(std::int64_t value);
    Statement &bind(std::string_view bytes);

    // True while there is a row.
    bool step();
    [[nodiscard]] std::int64_t number(int column) const;
    [[nodiscard]] std::string bytes(int column) const;

  private:
    struct Finalizer {
        void operator()(sqlite3_stmt *statement) const;
    };
    void check(int result) const;

    Database &database_;
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
    int bound_ = 0;
};

class Database {
  public:
    // Opens or makes the file.
    explicit Database(const std::string &path);

    void run(std::string_view sql);
    // The first column of the only row.
    std::int64_t number(std::string_view sql);
    std::string bytes(std::string_view sql);

    // Throws what a result other than success, a row or the end stands for.
    void check(int result) const;
    [[nodiscard]] sqlite3 *handle() const { return handle_.get(); }

  private:
    struct Closer {
        void operator()(sqlite3 *handle) const;
    };
    std::unique_ptr<sqlite3, Closer> handle_;
};

// Undone unless it is committed.
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

} // namespace uplink
