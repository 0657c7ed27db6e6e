// A commit: what was counted, and what becomes of what was counted before.
#include "usage/store/rollup.h"
#include "usage/store/slot.h"
#include "usage/store/store.h"
#include "usage/store/store_tables.h"

#include <random>
#include <set>

namespace usage {
namespace {

constexpr std::array kMadeLevels = {Level::kHour, Level::kDay, Level::kMonth};
constexpr std::array kTrimmedLevels = {Level::kSlot, Level::kHour, Level::kDay};

std::uint64_t randomName() {
    std::random_device random;
    return (static_cast<std::uint64_t>(random()) << 32U | random()) | 1U;
}

std::string sql(const char *before, Level level, const char *after) {
    return std::string(before) + tableOf(level) + after;
}

void addTo(Traffic &sum, PackedView packed) {
    const bool good =
        visitTraffic(packed, [&](Pair pair, const Bytes &bytes) { sum[pair] += bytes; });
    if (!good)
        throw SqlDamage("a period is damaged");
}

void writeGaps(const Database &database, const std::vector<Span> &gaps) {
    Statement(database, "DELETE FROM gap").run();
    Statement insert(database, "INSERT INTO gap VALUES(?, ?)");
    for (const Span &gap : gaps)
        insert.bind(gap.from).bind(gap.to).run();
}

void writeQuotas(const Database &database, const std::vector<Quota> &quotas) {
    Statement(database, "DELETE FROM quota").run();
    Statement insert(database, "INSERT INTO quota VALUES(?, ?, ?, ?, ?)");
    for (const Quota &quota : quotas) {
        insert.bind(quota.number);
        if (quota.device)
            insert.bind(PackedView(*quota.device));
        else
            insert.bindNull();
        insert.bind(static_cast<std::int64_t>(quota.total))
            .bind(quota.per == QuotaPeriod::kDay ? "day" : "month")
            .bind(std::int64_t{quota.startsOn})
            .run();
    }
}

} // namespace

struct Store::Progress {
    std::array<Seconds, kLevels> until;
    std::array<Seconds, kLevels> trimmed;
};

void Store::commit(Present &present, DeviceId forgotten) {
    const std::uint64_t name = randomName();
    if (!database_)
        begin();
    if (database_->number("SELECT count(*) FROM present") == 0) { // an empty store gets everything
        present.directory.markChanged();
        present.until = {};
        present.trimmed = {};
    }
    Progress progress{present.until, present.trimmed};
    Transaction transaction(*database_);
    addSlots(present.slots);
    for (const Level level : kMadeLevels)
        rollUp(level, progress, present.lastSample);
    if (forgotten != kOthers)
        forgetEverywhere(forgotten);
    trimByAge(progress, present.lastSample);
    trimBySize(progress);
    if (progress.until[indexOf(Level::kMonth)] != present.until[indexOf(Level::kMonth)])
        dropUnused(present.directory, present.lastSample);
    writeDirectory(present.directory);
    writePresent(present, progress, name);
    transaction.commit();
    present.until = progress.until;
    present.trimmed = progress.trimmed;
    present.commit = name;
    present.slots.clear();
    present.directory.markCommitted();
    if (forgotten != kOthers)
        emptyLog();
}

// What was deleted still stands in the log, until all of that is in the file. Where this fails,
// later commits see to it.
void Store::emptyLog() {
    sqlite3_wal_checkpoint_v2(database_->raw(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr,
                              nullptr);
}

void Store::writeDirectory(const Directory &directory) {
    Statement remove(*database_, "DELETE FROM device WHERE id = ?");
    for (const DeviceId id : directory.removed())
        remove.bind(std::int64_t{id}).run();
    Statement device(*database_, "INSERT OR REPLACE INTO device VALUES(?, ?, ?, ?, ?, ?)");
    for (const auto &[id, known] : directory.devices()) {
        if (known.changed)
            device.bind(std::int64_t{id})
                .bind(PackedView(known.mac))
                .bind(known.hostName)
                .bind(known.ownName)
                .bind(known.firstSeen)
                .bind(known.lastSeen)
                .run();
    }
    Statement application(*database_, "INSERT OR REPLACE INTO application VALUES(?, ?, ?)");
    for (const auto &[id, known] : directory.applications()) {
        if (known.changed)
            application.bind(std::int64_t{id})
                .bind(known.name.category)
                .bind(known.name.name)
                .run();
    }
}

void Store::write(Level level, const Span &span, const Traffic &traffic) {
    const Packed packed = packTraffic(traffic);
    Statement(*database_, sql("INSERT OR REPLACE INTO ", level, " VALUES(?, ?, ?)").c_str())
        .bind(span.from)
        .bind(span.to)
        .bind(PackedView(packed))
        .run();
}

void Store::addSlots(const Slots &slots) {
    for (const auto &[start, traffic] : slots) {
        const Span span = periodAt(Level::kSlot, start);
        Traffic sum = traffic;
        each(Level::kSlot, span, [&](const Span &, PackedView packed) { addTo(sum, packed); });
        write(Level::kSlot, span, sum);
    }
}

std::optional<Seconds> Store::firstFrom(Level level, Seconds from) const {
    Statement first(*database_, sql("SELECT min(start) FROM ", level, " WHERE start >= ?").c_str());
    first.bind(from);
    if (!first.step() || first.isNull(0))
        return std::nullopt;
    return first.number(0);
}

void Store::rollUp(Level level, Progress &progress, Seconds now) {
    Seconds &until = progress.until[indexOf(level)];
    while (const auto first = firstFrom(finer(level), until)) {
        Span period = nextPeriod(level, *first, until);
        if (period.to > now)
            break;
        Traffic sum;
        // All that begin in it: one that was made in another zone may end after it.
        each(finer(level), {period.from, period.to + kHourSeconds * 26},
             [&](const Span &part, PackedView packed) {
                 if (part.from >= period.to)
                     return;
                 addTo(sum, packed);
                 period.to = std::max(period.to, part.to);
             });
        write(level, period, capDevices(std::move(sum), mostDevices(level)));
        until = period.to;
    }
}

// A period goes when all of it is too old: an answer shows the whole one that its range begins in.
void Store::trimByAge(Progress &progress, Seconds now) {
    for (const Level level : kTrimmedLevels) {
        Seconds before = now - keptFor(level);
        if (const auto oldest = periodAround(level, before))
            before = oldest->from;
        before = std::min(before, progress.until[indexOf(coarser(level))]);
        Seconds &trimmed = progress.trimmed[indexOf(level)];
        if (before <= trimmed)
            continue;
        Statement(*database_, sql("DELETE FROM ", level, " WHERE start < ?").c_str())
            .bind(before)
            .run();
        if (sqlite3_changes(database_->raw()) > 0)
            trimmed = before;
    }
}

// A tenth of a level, but nothing that no coarser period holds.
bool Store::trimOldest(Level level, Progress &progress) {
    const std::string table = tableOf(level);
    Statement border(*database_, ("SELECT start FROM " + table +
                                  " ORDER BY start LIMIT 1 OFFSET"
                                  " (SELECT (count(*) + 9) / 10 FROM " +
                                  table + ")")
                                     .c_str());
    if (!border.step())
        return false;
    const Seconds before = std::min(border.number(0), progress.until[indexOf(coarser(level))]);
    Statement(*database_, sql("DELETE FROM ", level, " WHERE start < ?").c_str())
        .bind(before)
        .run();
    if (sqlite3_changes(database_->raw()) == 0)
        return false;
    progress.trimmed[indexOf(level)] = std::max(progress.trimmed[indexOf(level)], before);
    note_ =
        "the store is at its limit: " + table + "s before " + timeText(before) + " were given up";
    return true;
}

void Store::trimBySize(Progress &progress) {
    while (usedBytes() > options_.limit) {
        std::pair<std::int64_t, Level> largest{-1, Level::kSlot};
        for (const Level level : kTrimmedLevels) {
            const std::int64_t size =
                database_->number(sql("SELECT sum(length(packed)) FROM ", level, "").c_str());
            largest = std::max(largest, {size, level});
        }
        if (!trimOldest(largest.second, progress))
            break;
    }
}

void Store::forgetEverywhere(DeviceId device) {
    for (const Level level : {Level::kSlot, Level::kHour, Level::kDay, Level::kMonth}) {
        std::vector<std::pair<Span, Traffic>> changed;
        each(level, {0, kLatest}, [&](const Span &span, PackedView packed) {
            Traffic traffic;
            addTo(traffic, packed);
            if (moveToOthers(traffic, device))
                changed.emplace_back(span, std::move(traffic));
        });
        for (const auto &[span, traffic] : changed)
            write(level, span, traffic);
    }
}

// Devices that no period tells of leave, unless they were named. Slots and hours need no look: who
// is in one was seen within their time.
void Store::dropUnused(Directory &directory, Seconds now) {
    std::set<DeviceId> used;
    for (const Level level : {Level::kDay, Level::kMonth}) {
        each(level, {0, kLatest}, [&](const Span &, PackedView packed) {
            Traffic traffic;
            addTo(traffic, packed);
            for (const auto &[pair, bytes] : traffic)
                used.insert(pair.device);
        });
    }
    std::vector<DeviceId> unused;
    for (const auto &[id, device] : directory.devices()) {
        const bool recent = device.lastSeen >= now - keptFor(Level::kHour) - kDaySeconds;
        if (!recent && device.ownName.empty() && !used.contains(id))
            unused.push_back(id);
    }
    for (const DeviceId id : unused)
        directory.remove(id);
}

void Store::writePresent(const Present &present, const Progress &progress, std::uint64_t name) {
    writeGaps(*database_, present.gaps);
    writeQuotas(*database_, present.quotas);
    const Packed baseline = packBaseline(present.baseline);
    Statement insert(*database_,
                     "INSERT OR REPLACE INTO present VALUES(1, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(static_cast<std::int64_t>(name)).bind(present.lastSample);
    for (const Level level : kMadeLevels)
        insert.bind(progress.until[indexOf(level)]);
    for (const Level level : kTrimmedLevels)
        insert.bind(progress.trimmed[indexOf(level)]);
    insert.bind(PackedView(baseline)).run();
}

} // namespace usage
