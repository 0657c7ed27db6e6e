#include "engine/tables.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace idpfwd {
namespace {

// How many refused pairs are remembered, so that each is counted once: more of them still count
// with their packets and bytes.
constexpr std::size_t kMaxRefusedRows = 16384;

constexpr std::size_t kMaxUid = 255;
static_assert(kMaxUid > kMaxUsers);

std::uint8_t uidOfKey(std::uint32_t key) {
    return static_cast<std::uint8_t>(key >> 24);
}

Mac macOf(const devid_user_entry &user) {
    Mac mac{};
    std::copy_n(user.mac, mac.size(), mac.begin());
    return mac;
}

std::uint64_t inMilliseconds(std::uint32_t seconds) {
    return std::uint64_t{seconds} * 1000;
}

// A reader of its own pace may have seen a device after this moment was taken.
bool unseen(std::uint64_t seen, const Moment &now, std::uint32_t seconds) {
    return now.milliseconds > seen && now.milliseconds - seen > inMilliseconds(seconds);
}

// A counter that starts again would be read as one that has run backwards.
std::uint32_t sumOfPackets(std::uint32_t counted, std::uint32_t more) {
    return counted + std::min(more, std::numeric_limits<std::uint32_t>::max() - counted);
}

} // namespace

Traffic &Traffic::operator+=(const Traffic &more) {
    down_bytes += more.down_bytes;
    up_bytes += more.up_bytes;
    down_packets += more.down_packets;
    up_packets += more.up_packets;
    return *this;
}

devid_user_entry *Tables::findUser(const Mac &mac) {
    const auto position = index_.find(mac);
    return position ? &users_[*position] : nullptr;
}

// Numbers are handed out in turn, and there are more of them than users, so that one is not reused
// right after its device has left: a caller reads users and rows with two requests and must not
// join them wrongly.
std::size_t Tables::freeUid() const {
    std::bitset<kMaxUid + 1> taken;
    for (const auto &user : users_)
        taken.set(user.uid);
    std::size_t uid = lastUid_;
    do
        uid = uid % kMaxUid + 1;
    while (taken[uid]);
    return uid;
}

// The evidence is everything that has spoken for the device since it was first refused.
void Tables::refuseUser(const Mac &mac, const Moment &now, unsigned evidence) {
    bool newcomer = false;
    RefusedDevice &device = refused_.see(mac, now.milliseconds, newcomer);
    overflow_.users += newcomer ? 1 : 0;
    device.evidence = static_cast<std::uint8_t>(evidence);
}

void Tables::hideReturned(const devid_user_entry &user, const Mac &mac, const Moment &now) {
    const auto gone = absent_.find(mac);
    if (gone == absent_.end())
        return;
    presence_[user.uid].shown = gone->second + kAbsence;
    hidden_[user.uid] = now.milliseconds < presence_[user.uid].shown;
    absent_.erase(gone);
}

void Tables::showAbsent(const Moment &now) {
    std::erase_if(absent_,
                  [&](const auto &gone) { return now.milliseconds >= gone.second + kAbsence; });
    for (const auto &user : users_) {
        if (now.milliseconds >= presence_[user.uid].shown)
            hidden_.reset(user.uid);
    }
}

// Of those that have not earned their place the one goes that was not seen for longest.
bool Tables::dropUnproven(const Moment &now) {
    const devid_user_entry *leaving = nullptr;
    for (const devid_user_entry &user : users_) {
        const bool proven = earned(presence_[user.uid].evidence);
        if (!proven &&
            (leaving == nullptr || presence_[user.uid].seen < presence_[leaving->uid].seen))
            leaving = &user;
    }
    if (leaving == nullptr)
        return false;
    dropUsers(std::bitset<256>().set(leaving->uid), now);
    return true;
}

devid_user_entry *Tables::addUser(const Mac &mac, const Moment &now, unsigned evidence) {
    refused_.erase(mac);
    devid_user_entry user{};
    user.uid = lastUid_ = static_cast<std::uint8_t>(freeUid());
    std::copy(mac.begin(), mac.end(), user.mac);
    user.ts = now.seconds;
    user.ts_create = now.seconds;
    user.available = 1;
    users_.push_back(user);
    index_.append(mac);
    presence_[user.uid] = {
        .stay = ++stays_, .seen = now.milliseconds, .shown = 0, .evidence = evidence};
    hideReturned(user, mac, now);
    return &users_.back();
}

devid_user_entry *Tables::seeUser(const Mac &mac, const Moment &now, unsigned evidence) {
    if (devid_user_entry *known = findUser(mac)) {
        known->ts = now.seconds;
        Presence &presence = presence_[known->uid];
        presence.seen = now.milliseconds;
        presence.evidence |= evidence;
        return known;
    }
    if (full()) {
        if (const RefusedDevice *before = refused_.find(mac))
            evidence |= before->evidence;
        if (!earned(evidence) || !dropUnproven(now)) {
            refuseUser(mac, now, evidence);
            return nullptr;
        }
    }
    return addUser(mac, now, evidence);
}

std::uint64_t Tables::stay(const Mac &mac) const {
    const auto position = index_.find(mac);
    return position ? presence_[users_[*position].uid].stay : 0;
}

bool Tables::trusted(const Mac &mac) const {
    const auto position = index_.find(mac);
    return position && earned(presence_[users_[*position].uid].evidence);
}

devid_app_rate_entry *Tables::row(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id) {
    if (devid_app_rate_entry *known = rows_.find(uid, cat_id, app_id))
        return known;
    const std::uint32_t key = rowKey(uid, cat_id, app_id);
    if (rows_.all().size() >= kMaxRows) {
        if (refusedRows_.size() < kMaxRefusedRows && refusedRows_.insert(key).second)
            ++overflow_.rows;
        return nullptr;
    }
    refusedRows_.erase(key);
    return &rows_.add(uid, cat_id, app_id);
}

// Counting late does not count as seeing: what was held may be older than the device's last frame.
void Tables::addTraffic(const Mac &mac, std::uint8_t cat_id, std::uint16_t app_id,
                        const Traffic &traffic, const Moment &now) {
    const devid_user_entry *user = findUser(mac);
    if (user == nullptr)
        user = seeUser(mac, now);
    devid_app_rate_entry *entry = user != nullptr ? row(user->uid, cat_id, app_id) : nullptr;
    if (entry == nullptr) {
        refuseTraffic(mac, traffic);
        return;
    }
    entry->down_accl_byte += traffic.down_bytes;
    entry->up_accl_byte += traffic.up_bytes;
    entry->down_accl_pkt = sumOfPackets(entry->down_accl_pkt, traffic.down_packets);
    entry->up_accl_pkt = sumOfPackets(entry->up_accl_pkt, traffic.up_packets);
    entry->last_elapsed_ts = std::max<std::uint32_t>(now.seconds, 1); // 0 would say "never"
}

void Tables::refuseTraffic(const Mac &mac, const Traffic &traffic) {
    const std::uint64_t packets = std::uint64_t{traffic.down_packets} + traffic.up_packets;
    const std::uint64_t bytes = traffic.down_bytes + traffic.up_bytes;
    overflow_.packets += packets;
    overflow_.bytes += bytes;
    if (RefusedDevice *device = refused_.find(mac)) {
        device->packets += packets;
        device->bytes += bytes;
    }
}

void Tables::addForgotten(const Traffic &traffic) {
    forgotten_.packets += std::uint64_t{traffic.down_packets} + traffic.up_packets;
    forgotten_.bytes += traffic.down_bytes + traffic.up_bytes;
}

void Tables::addCapped(std::uint64_t bytes) {
    ++capped_.packets;
    capped_.bytes += bytes;
}

void Tables::dropUsers(const std::bitset<256> &uids, const Moment &now) {
    if (uids.none())
        return;
    for (const devid_user_entry &user : users_) {
        if (uids[user.uid])
            absent_[macOf(user)] = now.milliseconds;
    }
    hidden_ &= ~uids;
    forgotten_.users +=
        std::erase_if(users_, [&](const devid_user_entry &user) { return uids[user.uid]; });
    departures_ = forgotten_.users;
    index_.rebuild(users_);
    for (const devid_app_rate_entry &entry : rows_.all()) {
        if (!uids[entry.uid])
            continue;
        ++forgotten_.rows;
        addForgotten({.down_bytes = entry.down_accl_byte,
                      .up_bytes = entry.up_accl_byte,
                      .down_packets = entry.down_accl_pkt,
                      .up_packets = entry.up_accl_pkt});
    }
    rows_.eraseIf([&](const auto &entry) { return uids[entry.uid]; });
    std::erase_if(refusedRows_, [&](std::uint32_t key) { return uids[uidOfKey(key)]; });
}

void Tables::forgetUnseen(const Moment &now, std::uint32_t seconds) {
    refused_.forgetBefore(now.milliseconds - std::min(now.milliseconds, inMilliseconds(seconds)));
    showAbsent(now);
    std::bitset<256> gone;
    for (const devid_user_entry &user : users_)
        gone.set(user.uid, unseen(presence_[user.uid].seen, now, seconds));
    dropUsers(gone, now);
}

void Tables::replace(std::vector<devid_user_entry> users, std::vector<devid_app_rate_entry> rows) {
    users_ = std::move(users);
    index_.rebuild(users_);
    rows_.assign(std::move(rows));
    hidden_.reset();
    refused_.clear();
    refusedRows_.clear();
}

} // namespace idpfwd
