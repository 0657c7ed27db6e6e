#include "usage/uplink/outbox.h"

#include "common/file.h"
#include "usage/uplink/numbered.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <sys/random.h>

namespace uplink {
namespace {

namespace fs = std::filesystem;
using usage::Statement;
using usage::Transaction;

constexpr std::int64_t kVersion = 1;
constexpr std::size_t kIdentityBytes = 16;
constexpr std::size_t kDamagedKept = 2;

std::string randomIdentity() {
    std::array<char, kIdentityBytes> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw SqlError("the system has no random bytes");
    return {bytes.data(), bytes.size()};
}

std::string hexadecimal(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        std::array<char, 3> digits{};
        snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned char>(byte));
        text += digits.data();
    }
    return text;
}

// A file that was just made is there after a power cut only when its folder was written, too.
void syncFolder(const fs::path &folder) {
    const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened || fsync(opened.get()) != 0)
        throw SqlError("cannot write the folder " + folder.string());
}

} // namespace

Outbox::Outbox(const fs::path &folder, std::int64_t limit)
    : database_(folder / kFile), limit_(limit) {
    database_.run("PRAGMA locking_mode=EXCLUSIVE"); // one process, and no shared memory
    database_.run("PRAGMA journal_mode=WAL");
    database_.run("PRAGMA synchronous=FULL");
    database_.run("PRAGMA wal_autocheckpoint=64");
    database_.run("PRAGMA journal_size_limit=1048576");
    const std::int64_t version = database_.number("PRAGMA user_version");
    if (version > kVersion)
        throw SqlError("the outbox was made by a newer version of this program");
    if (version == 0) {
        create();
        syncFolder(folder);
    }
    if (database_.text("PRAGMA quick_check") != "ok")
        throw SqlDamage("its check has failed");
    const std::string identity = database_.text("SELECT identity FROM outbox");
    if (identity.size() != kIdentityBytes)
        throw SqlDamage("it has no identity");
    identity_ = hexadecimal(identity);
}

void Outbox::create() {
    Transaction transaction(database_);
    database_.run("CREATE TABLE outbox (identity BLOB NOT NULL, last INTEGER NOT NULL,"
                  " dropped INTEGER NOT NULL)");
    database_.run("CREATE TABLE report (sequence INTEGER PRIMARY KEY, taken INTEGER NOT NULL,"
                  " dropped INTEGER NOT NULL, body BLOB NOT NULL)");
    const std::string identity = randomIdentity();
    Statement(database_, "INSERT INTO outbox VALUES (CAST(? AS BLOB), 0, 0)").bind(identity).step();
    database_.run("PRAGMA user_version=1");
    transaction.commit();
}

std::int64_t Outbox::last() {
    return database_.number("SELECT last FROM outbox");
}

std::int64_t Outbox::waiting() {
    return database_.number("SELECT count(*) FROM report");
}

// Drops the oldest until size more bytes fit.
std::int64_t Outbox::makeRoom(std::int64_t size) {
    std::int64_t held = database_.number("SELECT total(length(body)) FROM report");
    std::int64_t dropped = 0;
    while (held + size > limit_) {
        Statement oldest(database_, "DELETE FROM report WHERE sequence ="
                                    " (SELECT min(sequence) FROM report) RETURNING length(body)");
        if (!oldest.step())
            break;
        held -= oldest.number(0);
        ++dropped;
    }
    return dropped;
}

std::int64_t Outbox::put(std::int64_t sequence, std::int64_t taken, std::string_view report) {
    Transaction transaction(database_);
    if (sequence <= last())
        return 0;
    const std::int64_t dropped = makeRoom(static_cast<std::int64_t>(report.size()));
    Statement(database_, "UPDATE outbox SET last = ?, dropped = dropped + ?")
        .bind(sequence)
        .bind(dropped)
        .step();
    Statement(database_, "INSERT INTO report SELECT ?, ?, dropped, CAST(? AS BLOB) FROM outbox")
        .bind(sequence)
        .bind(taken)
        .bind(report)
        .step();
    transaction.commit();
    return dropped;
}

std::optional<Message> Outbox::next(std::int64_t after) {
    Statement first(database_, "SELECT sequence, taken, dropped, body FROM report"
                               " WHERE sequence > ? ORDER BY sequence LIMIT 1");
    if (!first.bind(after).step())
        return std::nullopt;
    return Message{.sequence = first.number(0),
                   .taken = first.number(1),
                   .dropped = first.number(2),
                   .report = first.text(3)};
}

void Outbox::remove(std::span<const std::int64_t> sequences) {
    Transaction transaction(database_);
    for (const std::int64_t sequence : sequences)
        Statement(database_, "DELETE FROM report WHERE sequence = ?").bind(sequence).step();
    transaction.commit();
}

std::string setAside(const fs::path &folder) {
    const std::string file = Outbox::kFile;
    auto damaged = numberedFiles(folder, "damaged-", "-" + file);
    const std::int64_t number = nextNumber(damaged);
    std::string name = "damaged-" + std::to_string(number) + "-" + file;
    std::error_code ignored; // the journal is not always there
    fs::rename(folder / (file + "-wal"), folder / (name + "-wal"), ignored);
    fs::rename(folder / file, folder / name);
    for (; damaged.size() >= kDamagedKept; damaged.erase(damaged.begin())) {
        const fs::path &oldest = damaged.begin()->second;
        fs::remove(oldest, ignored);
        fs::remove(oldest.string() + "-wal", ignored);
    }
    return name;
}

} // namespace uplink
