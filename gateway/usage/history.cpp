#include "usage/history.h"

#include "usage/store/rollup.h"
#include "usage/store/scratch.h"

#include <algorithm>
#include <utility>

namespace usage {
namespace {

// Slots that wait for a commit that fails again and again; beyond, the two oldest become one.
constexpr std::size_t kMostSlots = 36;

// Anybody on the network can have as many addresses as they like; who comes later is one of the
// others until some have left.
constexpr std::size_t kMostDevices = 65536;

// A clock that leaps ahead by more than an hour is believed when it has stayed there for so long:
// what is stored at a wrong time in the future would stop the history until then.
constexpr Seconds kLeap = 3600;
constexpr std::int64_t kLeapBelievedMilliseconds = 600000;

} // namespace

History::History(HistoryOptions options, Engine &engine, Names &names, Tell tell)
    : options_(std::move(options)), engine_(engine), names_(names), tell_(std::move(tell)) {
    store_ = std::make_unique<Store>(options_.store, present_);
    if (!store_->setAsideAs().empty()) {
        status_.store = StoreHealth::kSetAside;
        tell_("the store was damaged; it was put aside as " + store_->setAsideAs() +
              ", and a new one begun");
    }
    if (present_.commit == 0) // a new store: from here on its scratch can't be taken for another's
        commit();
    else
        readScratch(options_.scratchFile, present_);
}

void History::tellChange(bool &flag, bool value, const char *becameTrue, const char *becameFalse) {
    if (flag != value)
        tell_(value ? becameTrue : becameFalse);
    flag = value;
}

bool History::clockIsGood(Moment now) {
    const Moment before = std::exchange(lastLook_, now);
    const Seconds passed = (now.milliseconds - before.milliseconds) / 1000;
    const Seconds ahead = now.wall - before.wall - passed;
    if (before.wall >= kEarliest && ahead > kLeap)
        leaptAt_ = now.milliseconds;
    if (ahead < -kLeap || now.milliseconds - leaptAt_ >= kLeapBelievedMilliseconds)
        leaptAt_ = -1;
    const bool waits =
        now.wall < std::max(present_.lastSample, kEarliest) || now.wall > kLatest || leaptAt_ >= 0;
    tellChange(status_.clockWaits, waits,
               "the clock is behind the store or leapt ahead: samples wait until it is right",
               "the clock is right again");
    return !waits;
}

void History::sample(Moment now) {
    refreshZone();
    if (!clockIsGood(now))
        return;
    const bool first = commitAt_ == 0;
    if (first) // what a scratch brought may be of an hour that has ended
        commitAt_ =
            periodAt(Level::kHour, present_.lastSample != 0 ? present_.lastSample : now.wall).to;
    const auto reading = engine_.read();
    if (first) // whichever it is, it is told
        status_.engineAnswers = !reading.has_value();
    tellChange(status_.engineAnswers, reading.has_value(), "the engine answers",
               "the engine does not answer");
    if (reading) {
        status_.lost = reading->lost;
        const auto grown = advance(present_.baseline, *reading, now.wall);
        noteGap(*reading, grown, now.wall);
        noteUsers(*reading, now.wall);
        count(*reading, grown, now);
        present_.lastSample = now.wall;
    }
    const bool due = now.wall >= commitAt_;
    if (due && commit())
        commitAt_ = periodAt(Level::kHour, now.wall).to;
    else if (due)
        commitAt_ = periodAt(Level::kSlot, now.wall).to;
    else
        keepScratch();
}

void History::keepScratch() {
    tellChange(scratchFails_, !writeScratch(options_.scratchFile, present_),
               "the scratch can't be written: what is not committed would not outlive a kill",
               "the scratch is written again");
}

void History::noteGap(const Reading &reading, const std::vector<Grown> &grown, Seconds now) {
    Seconds from = present_.lastSample;
    if (from == 0) { // what an engine had counted before anybody asked
        from = now;
        for (const Grown &one : grown)
            from = std::min<Seconds>(from, reading.users[one.user].stay.created);
        from = std::max(from, kEarliest);
        if (from < now)
            addGap(present_.gaps, {from, now});
    } else if (now - from > 2 * options_.every) {
        addGap(present_.gaps, {from, now});
    }
}

void History::noteUsers(const Reading &reading, Seconds now) {
    for (const Reading::User &user : reading.users) {
        Directory &directory = present_.directory;
        if (directory.find(user.stay.mac) == nullptr && directory.devices().size() >= kMostDevices)
            continue;
        Device &device = directory.device(user.stay.mac);
        if (!user.hostName.empty())
            device.hostName = user.hostName;
        if (device.firstSeen == 0)
            device.firstSeen = now;
        device.lastSeen = now;
        device.changed = true;
    }
}

void History::count(const Reading &reading, const std::vector<Grown> &grown, Moment now) {
    const bool first = rates_.number++ == 0;
    rates_.traffic.clear();
    for (const Grown &one : grown) {
        const Device *device = present_.directory.find(reading.users[one.user].stay.mac);
        Pair pair;
        if (device != nullptr)
            pair = {device->id, present_.directory.application(names_.nameOf(one.ids, now.wall))};
        present_.slots[periodAt(Level::kSlot, now.wall).from][pair] += one.bytes;
        rates_.traffic[pair] += one.bytes;
    }
    rates_.milliseconds = first ? -1 : now.milliseconds - sampledAt_;
    rates_.sampled = now.wall;
    sampledAt_ = now.milliseconds;
    foldOldSlots();
}

void History::foldOldSlots() {
    while (present_.slots.size() > kMostSlots) {
        const auto oldest = present_.slots.begin();
        const auto second = std::next(oldest);
        for (const auto &[pair, bytes] : oldest->second)
            second->second[pair] += bytes;
        addGap(present_.gaps, {oldest->first, second->first + kSlotSeconds});
        present_.slots.erase(oldest);
    }
}

bool History::commit() {
    return tryCommit(kOthers);
}

bool History::tryCommit(DeviceId forgotten) {
    try {
        store_->commit(present_, forgotten);
    } catch (const SqlDamage &damage) {
        setAside(damage.what());
        return status_.store == StoreHealth::kSetAside;
    } catch (const SqlError &error) {
        if (status_.store != StoreHealth::kFull)
            tell_(std::string("the store can't be written (") + error.what() +
                  "): counting goes on in memory, and every five minutes tries again");
        status_.store = StoreHealth::kFull;
        keepScratch();
        return false;
    }
    if (status_.store == StoreHealth::kFull) {
        tell_("the store is written again");
        status_.store = store_->setAsideAs().empty() ? StoreHealth::kOk : StoreHealth::kSetAside;
    }
    if (const std::string note = store_->takeNote(); !note.empty())
        tell_(note);
    keepScratch();
    return true;
}

void History::setAside(const std::string &why) {
    status_.store = StoreHealth::kFull;
    try {
        store_->startAnew(present_);
        store_->commit(present_);
        status_.store = StoreHealth::kSetAside;
        tell_("the store is damaged (" + why + "); it was put aside as " + store_->setAsideAs() +
              ", and a new one begun");
        keepScratch();
    } catch (const std::runtime_error &error) {
        tell_("the store is damaged (" + why + "), and no new one can be begun: " + error.what());
    }
}

bool History::nameDevice(const Mac &mac, const std::string &name) {
    const Present before = present_;
    Device &device = present_.directory.device(mac);
    device.ownName = name;
    device.changed = true;
    return tryCommit(kOthers) || restore(before);
}

bool History::restore(Present before) {
    present_ = std::move(before);
    keepScratch();
    return false;
}

bool History::forgetDevice(const Mac &mac) {
    const Present before = present_;
    if (const Device *device = present_.directory.find(mac)) {
        const DeviceId id = device->id;
        for (auto &[start, traffic] : present_.slots)
            moveToOthers(traffic, id);
        std::erase_if(rates_.traffic, [&](const auto &entry) { return entry.first.device == id; });
        present_.directory.remove(id);
        std::erase_if(present_.quotas, [&](const Quota &quota) { return quota.device == mac; });
        return tryCommit(id) || restore(before);
    }
    return true;
}

bool History::addQuota(Quota quota) {
    const Present before = present_;
    quota.number = present_.quotas.empty() ? 1 : present_.quotas.back().number + 1;
    present_.quotas.push_back(quota);
    return tryCommit(kOthers) || restore(before);
}

bool History::removeQuota(std::int64_t number) {
    const Present before = present_;
    std::erase_if(present_.quotas, [&](const Quota &quota) { return quota.number == number; });
    return tryCommit(kOthers) || restore(before);
}

} // namespace usage
