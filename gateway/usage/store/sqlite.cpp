#include "usage/store/sqlite.h"

namespace usage {
namespace {

[[noreturn]] void fail(sqlite3 *database, int result) {
    const SqlError error(database != nullptr ? sqlite3_errmsg(database) : sqlite3_errstr(result),
                         result);
    if (error.code() == SQLITE_CORRUPT || error.code() == SQLITE_NOTADB ||
        error.code() == SQLITE_FORMAT)
        throw SqlDamage(error.what());
    throw error;
}

} // namespace

Database::Database(const std::string &name, int flags) {
    sqlite3 *opened = nullptr;
    const int result = sqlite3_open_v2(name.c_str(), &opened, flags, nullptr);
    database_.reset(opened);
    if (result != SQLITE_OK)
        fail(opened, result);
}

void Database::run(const char *sql) {
    const int result = sqlite3_exec(raw(), sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK)
        fail(raw(), result);
}

std::int64_t Database::number(const char *sql) {
    Statement statement(*this, sql);
    return statement.step() ? statement.number(0) : 0;
}

std::string Database::text(const char *sql) {
    Statement statement(*this, sql);
    return statement.step() ? statement.text(0) : "";
}

Statement::Statement(const Database &database, const char *sql) : database_(database.raw()) {
    sqlite3_stmt *prepared = nullptr;
    const int result = sqlite3_prepare_v2(database_, sql, -1, &prepared, nullptr);
    statement_.reset(prepared);
    check(result);
}

void Statement::check(int result) {
    if (result != SQLITE_OK)
        fail(database_, result);
}

Statement &Statement::bind(std::int64_t value) {
    check(sqlite3_bind_int64(statement_.get(), next_++, value));
    return *this;
}

Statement &Statement::bind(std::string_view text) {
    check(sqlite3_bind_text(statement_.get(), next_++, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC));
    return *this;
}

Statement &Statement::bind(PackedView value) {
    check(sqlite3_bind_blob(statement_.get(), next_++, value.data(), static_cast<int>(value.size()),
                            SQLITE_STATIC));
    return *this;
}

Statement &Statement::bindNull() {
    check(sqlite3_bind_null(statement_.get(), next_++));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(statement_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        fail(database_, result);
    return result == SQLITE_ROW;
}

void Statement::run() {
    step();
    reset();
}

void Statement::reset() {
    check(sqlite3_reset(statement_.get()));
    next_ = 1;
}

std::int64_t Statement::number(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string Statement::text(int column) const {
    const auto *text =
        reinterpret_cast<const char *>(sqlite3_column_text(statement_.get(), column));
    const int size = sqlite3_column_bytes(statement_.get(), column);
    return text == nullptr ? std::string() : std::string(text, static_cast<std::size_t>(size));
}

PackedView Statement::bytes(int column) const {
    const auto *bytes =
        static_cast<const std::uint8_t *>(sqlite3_column_blob(statement_.get(), column));
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

Transaction::Transaction(Database &database) : database_(database) {
    database_.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (open_)
        sqlite3_exec(database_.raw(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
    database_.run("COMMIT");
    open_ = false;
}

} // namespace usage
