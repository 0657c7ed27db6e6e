#include "engine/tables.h"

#include <algorithm>
#include <cstring>

namespace idpfwd {
namespace {

// How many refused devices and pairs are remembered, so that each is counted once: more of them
// (a neighbour that makes addresses up) still count with their packets and bytes.
constexpr std::size_t kMaxRefused = 16384;

std::uint32_t rowKey(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id) {
    return static_cast<std::uint32_t>(uid) << 24 | static_cast<std::uint32_t>(cat_id) << 16 |
           app_id;
}

std::uint8_t uidOfKey(std::uint32_t key) {
    return static_cast<std::uint8_t>(key >> 24);
}

bool hasMac(const devid_user_entry &user, const Mac &mac) {
    return memcmp(user.mac, mac.data(), mac.size()) == 0;
}

bool unseenSince(std::uint32_t seen, std::uint32_t now, std::uint32_t seconds) {
    return now > seen && now - seen > seconds;
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

void Tables::refuseUser(const Mac &mac, std::uint32_t now) {
    if (const auto known = refused_.find(mac); known != refused_.end()) {
        known->second = now;
    } else if (refused_.size() < kMaxRefused) {
        refused_.emplace(mac, now);
        ++overflow_.users;
    }
}

devid_user_entry *Tables::seeUser(const Mac &mac, std::uint32_t now) {
    if (devid_user_entry *known = findUser(mac)) {
        known->ts = now;
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
    user.ts = now;
    user.ts_create = now;
    user.available = 1;
    users_.push_back(user);
    return &users_.back();
}

devid_app_rate_entry *Tables::row(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id) {
    const std::uint32_t key = rowKey(uid, cat_id, app_id);
    if (const auto found = rowIndex_.find(key); found != rowIndex_.end())
        return &rows_[found->second];
    if (rows_.size() >= kMaxRows) {
        if (refusedRows_.size() < kMaxRefused && refusedRows_.insert(key).second)
            ++overflow_.rows;
        return nullptr;
    }
    refusedRows_.erase(key);
    devid_app_rate_entry entry{};
    entry.uid = uid;
    entry.cat_id = cat_id;
    entry.app_id = app_id;
    entry.available = 1;
    rowIndex_.emplace(key, rows_.size());
    rows_.push_back(entry);
    return &rows_.back();
}

void Tables::addTraffic(const Mac &mac, std::uint8_t cat_id, std::uint16_t app_id,
                        const Traffic &traffic, std::uint32_t now) {
    const devid_user_entry *user = seeUser(mac, now);
    devid_app_rate_entry *entry = user != nullptr ? row(user->uid, cat_id, app_id) : nullptr;
    if (entry == nullptr) {
        overflow_.packets += std::uint64_t{traffic.down_packets} + traffic.up_packets;
        overflow_.bytes += traffic.down_bytes + traffic.up_bytes;
        return;
    }
    entry->down_accl_byte += traffic.down_bytes;
    entry->up_accl_byte += traffic.up_bytes;
    entry->down_accl_pkt += traffic.down_packets;
    entry->up_accl_pkt += traffic.up_packets;
    entry->last_elapsed_ts = std::max<std::uint32_t>(now, 1); // 0 would say "never"
}

void Tables::dropRows(const std::bitset<256> &uids) {
    if (uids.none())
        return;
    std::erase_if(rows_, [&](const auto &entry) { return uids[entry.uid]; });
    std::erase_if(refusedRows_, [&](std::uint32_t key) { return uids[uidOfKey(key)]; });
    indexRows();
}

void Tables::indexRows() {
    rowIndex_.clear();
    rowIndex_.reserve(rows_.size());
    for (std::size_t i = 0; i < rows_.size(); ++i)
        rowIndex_.emplace(rowKey(rows_[i].uid, rows_[i].cat_id, rows_[i].app_id), i);
}

void Tables::forgetUnseen(std::uint32_t now, std::uint32_t seconds) {
    std::erase_if(refused_,
                  [&](const auto &device) { return unseenSince(device.second, now, seconds); });
    std::bitset<256> gone;
    std::erase_if(users_, [&](const devid_user_entry &user) {
        const bool unseen = unseenSince(user.ts, now, seconds);
        if (unseen)
            gone.set(user.uid);
        return unseen;
    });
    dropRows(gone);
}

void Tables::forget(const Mac &mac) {
    refused_.erase(mac);
    const auto found = std::find_if(users_.begin(), users_.end(),
                                    [&](const auto &user) { return hasMac(user, mac); });
    if (found == users_.end())
        return;
    dropRows(std::bitset<256>{}.set(found->uid));
    users_.erase(found);
}

void Tables::replace(std::vector<devid_user_entry> users, std::vector<devid_app_rate_entry> rows) {
    users_ = std::move(users);
    rows_ = std::move(rows);
    refused_.clear();
    refusedRows_.clear();
    indexRows();
}

} // namespace idpfwd
