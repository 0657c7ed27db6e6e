#include "engine/tables.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace idpfwd {
namespace {

// How many refused devices and pairs are remembered, so that each is counted once: more of them
// (a neighbour that makes addresses up) still count with their packets and bytes.
constexpr std::size_t kMaxRefused = 16384;

std::uint8_t uidOfKey(std::uint32_t key) {
    return static_cast<std::uint8_t>(key >> 24);
}

bool hasMac(const devid_user_entry &user, const Mac &mac) {
    return memcmp(user.mac, mac.data(), mac.size()) == 0;
}

Mac macOf(const devid_user_entry &user) {
    Mac mac{};
    std::copy_n(user.mac, mac.size(), mac.begin());
    return mac;
}

bool unseen(std::uint64_t seen, const Moment &now, std::uint32_t seconds) {
    return now.milliseconds - seen > std::uint64_t{seconds} * 1000;
}

// A counter that starts again would be read as one that has run backwards.
std::uint32_t sumOfPackets(std::uint32_t counted, std::uint32_t more) {
    return counted + std::min(more, std::numeric_limits<std::uint32_t>::max() - counted);
}

} // namespace

devid_user_entry *Tables::findUser(const Mac &mac) {
    const auto found = std::find_if(users_.begin(), users_.end(),
                                    [&](const auto &user) { return hasMac(user, mac); });
    return found != users_.end() ? &*found : nullptr;
}

// Numbers are handed out in turn, so that one is not reused right after its device was forgotten:
// a caller reads users and rows with two requests and must not join them wrongly.
std::uint8_t Tables::freeUid() {
    std::array<bool, kMaxUsers + 1> taken{};
    for (const auto &user : users_) {
        if (user.uid <= kMaxUsers)
            taken[user.uid] = true;
    }
    std::size_t uid = lastUid_;
    for (std::size_t tried = 0; tried < kMaxUsers; ++tried) {
        uid = uid % kMaxUsers + 1;
        if (!taken[uid])
            break;
    }
    lastUid_ = static_cast<std::uint8_t>(uid);
    return lastUid_;
}

void Tables::refuseUser(const Mac &mac, const Moment &now) {
    if (const auto known = refused_.find(mac); known != refused_.end()) {
        known->second = now.milliseconds;
    } else if (refused_.size() < kMaxRefused) {
        refused_.emplace(mac, now.milliseconds);
        ++overflow_.users;
    }
}

void Tables::hideReturned(const devid_user_entry &user, const Mac &mac, const Moment &now) {
    const auto gone = forgotten_.find(mac);
    if (gone == forgotten_.end())
        return;
    presence_[user.uid].shown = gone->second + kAbsence;
    hidden_[user.uid] = now.milliseconds < presence_[user.uid].shown;
    forgotten_.erase(gone);
}

void Tables::showAbsent(const Moment &now) {
    std::erase_if(forgotten_,
                  [&](const auto &gone) { return now.milliseconds >= gone.second + kAbsence; });
    for (const auto &user : users_) {
        if (now.milliseconds >= presence_[user.uid].shown)
            hidden_.reset(user.uid);
    }
}

devid_user_entry *Tables::seeUser(const Mac &mac, const Moment &now) {
    if (devid_user_entry *known = findUser(mac)) {
        known->ts = now.seconds;
        presence_[known->uid].seen = now.milliseconds;
        return known;
    }
    if (users_.size() >= kMaxUsers) {
        refuseUser(mac, now);
        return nullptr;
    }
    refused_.erase(mac);
    devid_user_entry user{};
    user.uid = freeUid();
    std::copy(mac.begin(), mac.end(), user.mac);
    user.ts = now.seconds;
    user.ts_create = now.seconds;
    user.available = 1;
    users_.push_back(user);
    presence_[user.uid] = {.stay = ++stays_, .seen = now.milliseconds, .shown = 0};
    hideReturned(user, mac, now);
    return &users_.back();
}

std::uint64_t Tables::stay(const Mac &mac) {
    const devid_user_entry *user = findUser(mac);
    return user != nullptr ? presence_[user->uid].stay : 0;
}

devid_app_rate_entry *Tables::row(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id) {
    if (devid_app_rate_entry *known = rows_.find(uid, cat_id, app_id))
        return known;
    const std::uint32_t key = rowKey(uid, cat_id, app_id);
    if (rows_.all().size() >= kMaxRows) {
        if (refusedRows_.size() < kMaxRefused && refusedRows_.insert(key).second)
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
        overflow_.packets += std::uint64_t{traffic.down_packets} + traffic.up_packets;
        overflow_.bytes += traffic.down_bytes + traffic.up_bytes;
        return;
    }
    entry->down_accl_byte += traffic.down_bytes;
    entry->up_accl_byte += traffic.up_bytes;
    entry->down_accl_pkt = sumOfPackets(entry->down_accl_pkt, traffic.down_packets);
    entry->up_accl_pkt = sumOfPackets(entry->up_accl_pkt, traffic.up_packets);
    entry->last_elapsed_ts = std::max<std::uint32_t>(now.seconds, 1); // 0 would say "never"
}

void Tables::dropRows(const std::bitset<256> &uids) {
    if (uids.none())
        return;
    rows_.eraseIf([&](const auto &entry) { return uids[entry.uid]; });
    std::erase_if(refusedRows_, [&](std::uint32_t key) { return uids[uidOfKey(key)]; });
}

void Tables::forgetUnseen(const Moment &now, std::uint32_t seconds) {
    std::erase_if(refused_,
                  [&](const auto &device) { return unseen(device.second, now, seconds); });
    showAbsent(now);
    std::bitset<256> gone;
    std::erase_if(users_, [&](const devid_user_entry &user) {
        const bool forgotten = unseen(presence_[user.uid].seen, now, seconds);
        if (forgotten) {
            gone.set(user.uid);
            forgotten_[macOf(user)] = now.milliseconds;
        }
        return forgotten;
    });
    hidden_ &= ~gone;
    dropRows(gone);
}

void Tables::replace(std::vector<devid_user_entry> users, std::vector<devid_app_rate_entry> rows) {
    users_ = std::move(users);
    rows_.assign(std::move(rows));
    hidden_.reset();
    refused_.clear();
    refusedRows_.clear();
}

} // namespace idpfwd
