#include "usage/uplink/sqlite.h"

#include <sqlite3.h>

namespace uplink {

Statement::Statement(Database &database, std::string_view sql) : database_(database) {
    sqlite3_stmt *prepared = nullptr;
    database.check(sqlite3_prepare_v2(database.handle(), sql.data(), static_cast<int>(sql.size()),
                                      &prepared, nullptr));
    statement_.reset(prepared);
}

void Statement::Finalizer::operator()(sqlite3_stmt *statement) const {
    sqlite3_finalize(statement);
}

Statement &Statement::bind(std::int64_t value) {
    database_.check(sqlite3_bind_int64(statement_.get(), ++bound_, value));
    return *this;
}

Statement &Statement::bind(std::string_view bytes) {
    database_.check(
        sqlite3_bind_blob64(statement_.get(), ++bound_, bytes.data(), bytes.size(), SQLITE_STATIC));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(statement_.get());
    database_.check(result);
    return result == SQLITE_ROW;
}

std::int64_t Statement::number(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string Statement::bytes(int column) const {
    const auto *data = static_cast<const char *>(sqlite3_column_blob(statement_.get(), column));
    const int size = sqlite3_column_bytes(statement_.get(), column);
    return data == nullptr ? std::string() : std::string(data, static_cast<std::size_t>(size));
}

Database::Database(const std::string &path) {
    sqlite3 *opened = nullptr;
    const int result =
        sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    handle_.reset(opened);
    check(result);
}

void Database::Closer::operator()(sqlite3 *handle) const {
    sqlite3_close_v2(handle);
}

void Database::check(int result) const {
    switch (result & 0xFF) { // without what the extended codes add
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        throw DatabaseDamaged(sqlite3_errmsg(handle_.get()));
    default:
        throw DatabaseError(sqlite3_errmsg(handle_.get()));
    }
}

void Database::run(std::string_view sql) {
    Statement statement(*this, sql);
    while (statement.step()) {
    }
}

std::int64_t Database::number(std::string_view sql) {
    Statement statement(*this, sql);
    return statement.step() ? statement.number(0) : 0;
}

std::string Database::bytes(std::string_view sql) {
    Statement statement(*this, sql);
    return statement.step() ? statement.bytes(0) : "";
}

Transaction::Transaction(Database &database) : database_(database) {
    database_.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (open_)
        sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
    database_.run("COMMIT");
    open_ = false;
}

} // namespace uplink
