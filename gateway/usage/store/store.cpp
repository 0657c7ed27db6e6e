#include "usage/store/store.h"

#include "usage/store/slot.h"
#include "usage/store/store_tables.h"
#include "usage/text.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <thread>
#include <utility>

namespace usage {
namespace {

// What the file says it is: SQLite's application_id and user_version.
constexpr std::int64_t kApplicationId = 0x74726166; // "traf"
constexpr std::int64_t kVersion = 1;

// A command that reads is done long before.
constexpr int kOpenTries = 100;
constexpr std::chrono::milliseconds kBetweenTries(100);

constexpr const char *kSchema = R"(
CREATE TABLE device(id INTEGER PRIMARY KEY, mac BLOB NOT NULL, host_name TEXT NOT NULL,
                    own_name TEXT NOT NULL, first_seen INTEGER NOT NULL, last_seen INTEGER NOT NULL);
CREATE TABLE application(id INTEGER PRIMARY KEY, category TEXT NOT NULL, name TEXT NOT NULL);
CREATE TABLE slot(start INTEGER PRIMARY KEY, finish INTEGER NOT NULL, packed BLOB NOT NULL);
CREATE TABLE hour(start INTEGER PRIMARY KEY, finish INTEGER NOT NULL, packed BLOB NOT NULL);
CREATE TABLE day(start INTEGER PRIMARY KEY, finish INTEGER NOT NULL, packed BLOB NOT NULL);
CREATE TABLE month(start INTEGER PRIMARY KEY, finish INTEGER NOT NULL, packed BLOB NOT NULL);
CREATE TABLE gap(start INTEGER NOT NULL, finish INTEGER NOT NULL);
CREATE TABLE quota(number INTEGER PRIMARY KEY, mac BLOB, total INTEGER NOT NULL,
                   per TEXT NOT NULL, starts_on INTEGER NOT NULL);
CREATE TABLE present(one INTEGER PRIMARY KEY CHECK (one = 1), commit_name INTEGER NOT NULL,
                     last_sample INTEGER NOT NULL, hours_until INTEGER NOT NULL,
                     days_until INTEGER NOT NULL, months_until INTEGER NOT NULL,
                     slots_from INTEGER NOT NULL, hours_from INTEGER NOT NULL,
                     days_from INTEGER NOT NULL, baseline BLOB NOT NULL);
)";

Mac macOf(PackedView bytes) {
    Mac mac{};
    if (bytes.size() == mac.size())
        std::copy(bytes.begin(), bytes.end(), mac.begin());
    return mac;
}

void loadDirectory(const Database &database, Directory &directory) {
    Statement devices(database,
                      "SELECT id, mac, host_name, own_name, first_seen, last_seen FROM device");
    while (devices.step()) {
        directory.restore(Device{.id = static_cast<DeviceId>(devices.number(0)),
                                 .mac = macOf(devices.bytes(1)),
                                 .hostName = devices.text(2),
                                 .ownName = devices.text(3),
                                 .firstSeen = devices.number(4),
                                 .lastSeen = devices.number(5),
                                 .changed = false});
    }
    Statement applications(database, "SELECT id, category, name FROM application");
    while (applications.step()) {
        directory.restore(Application{.id = static_cast<ApplicationId>(applications.number(0)),
                                      .name = {applications.text(1), applications.text(2)},
                                      .changed = false});
    }
}

void loadQuotas(const Database &database, std::vector<Quota> &quotas) {
    Statement found(database, "SELECT number, mac, total, per, starts_on FROM quota");
    while (found.step()) {
        Quota quota;
        quota.number = found.number(0);
        if (!found.isNull(1))
            quota.device = macOf(found.bytes(1));
        quota.total = static_cast<std::uint64_t>(found.number(2));
        quota.per = found.text(3) == "day" ? QuotaPeriod::kDay : QuotaPeriod::kMonth;
        quota.startsOn = static_cast<int>(found.number(4));
        quotas.push_back(quota);
    }
}

// Without a log beside it the file is all there is, and reading it must leave nothing behind; nor
// can it in a folder that may not be written.
std::vector<const char *> readingModes(const std::string &file) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file + "-wal", error);
    if (error || size == 0)
        return {"?mode=ro&immutable=1"};
    return {"?mode=ro", "?mode=ro&immutable=1"};
}

} // namespace

const char *tableOf(Level level) {
    constexpr std::array<const char *, kLevels> kTables = {"slot", "hour", "day", "month"};
    return kTables[indexOf(level)];
}

std::string storeFile(const std::string &folder) {
    return folder + "/history.db";
}

Store::Store(StoreOptions options, Present &present) : options_(std::move(options)) {
    lockFolder();
    try {
        openWhenReadersLeft(present);
    } catch (const SqlDamage &) {
        startAnew(present);
    } catch (const SqlError &error) {
        throw StoreError("cannot open " + storeFile(options_.folder) + ": " + error.what());
    }
}

// SQLite's own waiting does not cover every lock that it takes on the way to a log of one user.
void Store::openWhenReadersLeft(Present &present) {
    for (int tries = kOpenTries;; --tries) {
        try {
            openService(present);
            return;
        } catch (const SqlError &error) {
            if (error.code() != SQLITE_BUSY || tries == 0)
                throw;
        }
        database_.reset();
        std::this_thread::sleep_for(kBetweenTries);
    }
}

std::unique_ptr<Store> Store::openToRead(const std::string &folder, Present &present) {
    const std::string file = storeFile(folder);
    if (access(file.c_str(), R_OK) != 0)
        throw StoreError("cannot read " + file + ": " + strerror(errno));
    std::unique_ptr<Store> store(new Store);
    for (const char *mode : readingModes(file)) {
        try { // nothing may be made
            store->database_ = std::make_unique<Database>("file:" + percentEncoded(file) + mode,
                                                          SQLITE_OPEN_READONLY | SQLITE_OPEN_URI |
                                                              SQLITE_OPEN_NOMUTEX);
            store->check();
            store->load(present);
            return store;
        } catch (const SqlError &error) {
            if (error.code() == SQLITE_BUSY)
                throw StoreError(file + " is in use by a service that does not answer here");
            if (error.code() != SQLITE_CANTOPEN && error.code() != SQLITE_READONLY)
                throw StoreError("cannot read " + file + ": " + error.what());
        }
    }
    throw StoreError("cannot read " + file);
}

// SQLite's own lock would not tell another service from somebody who only reads for a moment.
void Store::lockFolder() {
    const std::string file = options_.folder + "/lock";
    lock_ = std::make_unique<Descriptor>(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    if (!*lock_)
        throw StoreError("cannot make " + file + ": " + strerror(errno));
    if (flock(lock_->get(), LOCK_EX | LOCK_NB) != 0)
        throw StoreError(storeFile(options_.folder) + " is in use by another service");
}

void Store::openService(Present &present) {
    database_ = std::make_unique<Database>(storeFile(options_.folder), SQLITE_OPEN_READWRITE |
                                                                           SQLITE_OPEN_CREATE |
                                                                           SQLITE_OPEN_NOMUTEX);
    // The lock is taken with the first access, when readers have left, and never given back. Of
    // what is deleted nothing stays in the file: neither who was forgotten nor what they used.
    database_->run("PRAGMA locking_mode=EXCLUSIVE; PRAGMA cache_size=-1024;"
                   "PRAGMA temp_store=MEMORY; PRAGMA secure_delete=ON");
    database_->run("BEGIN EXCLUSIVE; COMMIT");
    const bool isNew = database_->number("PRAGMA application_id") == 0 &&
                       database_->number("SELECT count(*) FROM sqlite_schema") == 0;
    if (!isNew)
        check();
    database_->run("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                   "PRAGMA wal_autocheckpoint=64; PRAGMA journal_size_limit=524288");
    if (!isNew) {
        if (database_->text("PRAGMA quick_check(1)") != "ok")
            throw SqlDamage("its pages don't fit together");
        load(present);
        return;
    }
    Transaction transaction(*database_);
    database_->run(("PRAGMA application_id=" + std::to_string(kApplicationId) +
                    "; PRAGMA user_version=" + std::to_string(kVersion) + ";" + kSchema)
                       .c_str());
    transaction.commit();
}

void Store::check() {
    if (database_->number("PRAGMA application_id") != kApplicationId)
        throw StoreError(storeFile(options_.folder) + " is another program's; it is left as it is");
    const std::int64_t version = database_->number("PRAGMA user_version");
    if (version != kVersion)
        throw StoreError(storeFile(options_.folder) + " has version " + std::to_string(version) +
                         ", this program knows version " + std::to_string(kVersion) +
                         "; it is left as it is");
}

void Store::load(Present &present) const {
    present = {};
    loadDirectory(*database_, present.directory);
    loadQuotas(*database_, present.quotas);
    Statement gaps(*database_, "SELECT start, finish FROM gap ORDER BY start");
    while (gaps.step())
        present.gaps.push_back({gaps.number(0), gaps.number(1)});
    Statement kept(*database_, "SELECT commit_name, last_sample, hours_until, days_until,"
                               " months_until, slots_from, hours_from, days_from, baseline"
                               " FROM present");
    if (!kept.step())
        return;
    present.commit = static_cast<std::uint64_t>(kept.number(0));
    present.lastSample = kept.number(1);
    for (std::size_t level = 1; level < kLevels; ++level) {
        present.until[level] = kept.number(1 + static_cast<int>(level));
        present.trimmed[level - 1] = kept.number(4 + static_cast<int>(level));
    }
    auto baseline = unpackBaseline(kept.bytes(8));
    if (!baseline)
        throw SqlDamage("its counters are damaged");
    present.baseline = std::move(*baseline);
}

// Still open while it gets its other name: SQLite leaves the log of a file that was moved alone.
void Store::setAside() {
    const std::string file = storeFile(options_.folder);
    std::string name = file + ".damaged-" + timeText(time(nullptr));
    for (int more = 2; std::filesystem::exists(name); ++more)
        name = file + ".damaged-" + timeText(time(nullptr)) + "-" + std::to_string(more);
    std::error_code error;
    std::filesystem::rename(file, name, error);
    if (error)
        throw StoreError(file + " is damaged and cannot be put aside: " + error.message());
    database_.reset();
    std::filesystem::rename(file + "-wal", name + "-wal", error);
    setAsideAs_ = name;
}

void Store::begin() {
    Present nothing;
    try {
        openService(nothing);
    } catch (...) {
        database_.reset();
        throw;
    }
}

void Store::startAnew(Present &present) {
    setAside();
    present.commit = 0;
    try {
        begin();
    } catch (const SqlError &error) {
        throw StoreError("cannot begin a new store: " + std::string(error.what()));
    }
}

Database &Store::database() const {
    if (!database_)
        throw SqlError("a new one could not be begun");
    return *database_;
}

void Store::each(Level level, const Span &span, const Visitor &visit) const {
    Statement found(database(),
                    ("SELECT start, finish, packed FROM " + std::string(tableOf(level)) +
                     " WHERE start >= ? AND start < ? AND finish <= ? ORDER BY start")
                        .c_str());
    found.bind(span.from).bind(span.to).bind(span.to);
    while (found.step())
        visit({found.number(0), found.number(1)}, found.bytes(2));
}

std::optional<Span> Store::periodAround(Level level, Seconds time) const {
    Statement found(database(), ("SELECT start, finish FROM " + std::string(tableOf(level)) +
                                 " WHERE start < ? ORDER BY start DESC LIMIT 1")
                                    .c_str());
    found.bind(time);
    if (!found.step() || found.number(1) <= time)
        return std::nullopt;
    return Span{found.number(0), found.number(1)};
}

void Store::backUp(const std::string &file) const {
    Database copy(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    sqlite3_backup *backup = sqlite3_backup_init(copy.raw(), "main", database().raw(), "main");
    if (backup == nullptr)
        throw SqlError(sqlite3_errmsg(copy.raw()), sqlite3_errcode(copy.raw()));
    sqlite3_backup_step(backup, -1);
    const int result = sqlite3_backup_finish(backup);
    if (result != SQLITE_OK)
        throw SqlError(sqlite3_errstr(result), result);
    copy.run("PRAGMA journal_mode=DELETE"); // one file, that may be read where nothing may be made
}

std::uint64_t Store::usedBytes() const {
    const std::int64_t pages =
        database().number("PRAGMA page_count") - database().number("PRAGMA freelist_count");
    return static_cast<std::uint64_t>(pages * database().number("PRAGMA page_size"));
}

std::string Store::takeNote() {
    return std::exchange(note_, "");
}

} // namespace usage
