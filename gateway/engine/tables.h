// What the engine knows: the client devices and, for each, the traffic of each application.
#pragma once

#include "engine/mac_index.h"
#include "engine/refused_devices.h"
#include "engine/row_table.h"

#include <array>
#include <atomic>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

namespace idpfwd {

// The time by two clocks: seconds since the epoch for what is shown, and one that never runs
// backwards and is never set for how long something has been idle.
struct Moment {
    std::uint32_t seconds = 1;
    std::uint64_t milliseconds = 0;
};

// Limits of the tables that callers read: one slot less than their buffers have.
constexpr std::size_t kMaxUsers = IDPFW_USER_SLOTS - 1;
constexpr std::size_t kMaxRows = IDPFW_APP_SLOTS - 1;

// How long a device that was forgotten stays out of the callers' sight, in milliseconds: two
// readings, which are at most 10 seconds apart, fall into it whole.
constexpr std::uint64_t kAbsence = 30'000;

// What did not fit, since the engine started.
struct Overflow {
    std::uint64_t users = 0;   // devices refused while 63 were known, each counted once a stay
    std::uint64_t rows = 0;    // (device, application) pairs refused
    std::uint64_t packets = 0; // packets of refused devices and pairs
    std::uint64_t bytes = 0;   // their bytes

    [[nodiscard]] bool any() const { return users != 0 || rows != 0 || packets != 0; }
};

// What was dropped since the engine started together with devices that were not seen for too long,
// or that left their place to one that had earned it.
struct Forgotten {
    std::uint64_t users = 0;
    std::uint64_t rows = 0;
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;

    [[nodiscard]] bool any() const { return users != 0 || packets != 0; }
};

// What shows that a device is there, and no source address that somebody made up. It has earned
// its place when it has both sent and been sent something, when the router has sent it something,
// or when it has answered (an address that was asked for, or with a lease that it was given).
enum Evidence : std::uint8_t {
    kNoEvidence = 0,
    kHasSent = 1,
    kHasReceived = 2,
    kHasAnswered = 4,
    kHasEarned = 8, // one who knows it has said so
};

[[nodiscard]] constexpr bool earned(unsigned evidence) {
    constexpr unsigned conversation = kHasSent | kHasReceived;
    return (evidence & (kHasAnswered | kHasEarned)) != 0 ||
           (evidence & conversation) == conversation;
}

// Frames whose header claims a length that no frame can have: they count with what was captured.
struct Capped {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0; // claimed beyond that
};

struct Traffic {
    std::uint64_t down_bytes = 0;
    std::uint64_t up_bytes = 0;
    std::uint32_t down_packets = 0;
    std::uint32_t up_packets = 0;

    Traffic &operator+=(const Traffic &more);
};

class Tables {
  public:
    // Notes that the device is there at this moment, adding it if it is new, and what speaks for
    // it (of Evidence). The record can be filled further (addresses, host name, identity); it is
    // valid until the next call. A full table has room for one that has earned its place as long
    // as there is one that has not. Null when there is no room: counted as overflow.
    devid_user_entry *seeUser(const Mac &mac, const Moment &now, unsigned evidence = kNoEvidence);

    // The record of a known device, or null.
    devid_user_entry *findUser(const Mac &mac);

    // A number for this stay of a device that no other stay has; 0 when it is not known.
    [[nodiscard]] std::uint64_t stay(const Mac &mac) const;

    // Whether the device is known and has earned its place.
    [[nodiscard]] bool trusted(const Mac &mac) const;

    // Adds to the counters of one application of a device, seen now if it was not known. What does
    // not fit is counted as overflow. Counters of packets stop at their largest value.
    void addTraffic(const Mac &mac, std::uint8_t cat_id, std::uint16_t app_id,
                    const Traffic &traffic, const Moment &now);

    // Counts traffic of a device whose stay is over as forgotten.
    void addForgotten(const Traffic &traffic);

    // Counts a frame that claimed so many bytes more than can be.
    void addCapped(std::uint64_t bytes);

    // Drops the devices that were not seen for more than the given seconds, with their rows. One
    // that comes back at once starts again at 0, which a caller that has not missed it would take
    // for counters that ran backwards: it is hidden until it has been away for the absence.
    void forgetUnseen(const Moment &now, std::uint32_t seconds);

    // Hides nobody any more: the input has come to its end, and no moment will follow.
    void showAll() { hidden_.reset(); }

    // Replaces everything, records as given (a scenario may break every rule on purpose).
    void replace(std::vector<devid_user_entry> users, std::vector<devid_app_rate_entry> rows);

    [[nodiscard]] const std::vector<devid_user_entry> &users() const { return users_; }
    [[nodiscard]] const std::vector<devid_app_rate_entry> &rows() const { return rows_.all(); }
    [[nodiscard]] bool full() const { return users_.size() >= kMaxUsers; }
    [[nodiscard]] const Overflow &overflow() const { return overflow_; }
    [[nodiscard]] const Forgotten &forgotten() const { return forgotten_; }

    // How many devices have left: another number says that a stay may have ended. May be read
    // while another thread changes the tables.
    [[nodiscard]] std::uint64_t departures() const { return departures_; }

    [[nodiscard]] const Capped &capped() const { return capped_; }
    [[nodiscard]] const RefusedDevices &refused() const { return refused_; }

    // By uid: whose record and rows callers are not to be given.
    [[nodiscard]] const std::bitset<256> &hidden() const { return hidden_; }

  private:
    struct Presence {
        std::uint64_t stay = 0;
        std::uint64_t seen = 0;  // last, in a moment's milliseconds
        std::uint64_t shown = 0; // from then on
        unsigned evidence = 0;
    };

    [[nodiscard]] std::size_t freeUid() const;
    devid_user_entry *addUser(const Mac &mac, const Moment &now, unsigned evidence);
    void refuseUser(const Mac &mac, const Moment &now, unsigned evidence);
    bool dropUnproven(const Moment &now);
    void refuseTraffic(const Mac &mac, const Traffic &traffic);
    void hideReturned(const devid_user_entry &user, const Mac &mac, const Moment &now);
    void showAbsent(const Moment &now);
    devid_app_rate_entry *row(std::uint8_t uid, std::uint8_t cat_id, std::uint16_t app_id);
    void dropUsers(const std::bitset<256> &uids, const Moment &now);

    std::vector<devid_user_entry> users_;
    MacIndex index_;
    std::array<Presence, 256> presence_; // of each user, by uid
    RowTable rows_;
    std::bitset<256> hidden_;             // by uid
    std::map<Mac, std::uint64_t> absent_; // those that have left lately -> when
    RefusedDevices refused_;
    std::set<std::uint32_t> refusedRows_; // pairs that did not fit, by rowKey
    std::uint8_t lastUid_ = 0;
    std::uint64_t stays_ = 0;
    Overflow overflow_;
    Forgotten forgotten_;
    std::atomic<std::uint64_t> departures_ = 0;
    Capped capped_;
};

} // namespace idpfwd
