// The history as it grows: takes readings of the engine, keeps what they add, commits it.
#pragma once

#include "usage/store/store.h"

namespace usage {

// The time by two clocks: the one that people set, and one that only runs.
struct Moment {
    Seconds wall = 0;
    std::int64_t milliseconds = 0; // since the machine started
};

enum class StoreHealth { kOk, kFull, kSetAside };

struct Status {
    bool engineAnswers = false;
    bool clockWaits = false; // the clock is behind the store, or has just leapt ahead
    StoreHealth store = StoreHealth::kOk;
    Lost lost;
};

// What the last sample added, and in how many milliseconds; -1 before the second sample.
struct Rates {
    std::uint64_t number = 0; // of the sample; a second of the clock may have several
    Seconds sampled = 0;
    std::int64_t milliseconds = -1;
    Traffic traffic;
};

struct HistoryOptions {
    StoreOptions store;
    std::string scratchFile;
    Seconds every = 5; // between two samples
};

class History {
  public:
    // Tells people what happened: one line, without an end.
    using Tell = std::function<void(const std::string &)>;

    // Opens the store and goes on where its scratch was. Throws StoreError.
    History(HistoryOptions options, Engine &engine, Names &names, Tell tell);

    // One look at the engine. Commits when an hour of the zone has ended since the last time.
    void sample(Moment now);

    // Makes everything durable. False when the store does not let itself be written: what is
    // counted stays in memory and in the scratch, and every slot's end tries again.
    bool commit();

    // These commit as well; false when that fails, and then nothing has changed.
    bool nameDevice(const Mac &mac, const std::string &name); // "" takes the owner's name away
    bool forgetDevice(const Mac &mac);
    bool addQuota(Quota quota); // its number is given here
    bool removeQuota(std::int64_t number);

    [[nodiscard]] const Present &present() const { return present_; }
    [[nodiscard]] const Store &store() const { return *store_; }
    [[nodiscard]] const Status &status() const { return status_; }
    [[nodiscard]] const Rates &rates() const { return rates_; }

  private:
    bool clockIsGood(Moment now);
    void noteGap(const Reading &reading, const std::vector<Grown> &grown, Seconds now);
    void noteUsers(const Reading &reading, Seconds now);
    void count(const Reading &reading, const std::vector<Grown> &grown, Moment now);
    void foldOldSlots();
    bool tryCommit(DeviceId forgotten);
    bool restore(Present before);
    void setAside(const std::string &why);
    void keepScratch();
    void tellChange(bool &flag, bool value, const char *becameTrue, const char *becameFalse);

    HistoryOptions options_;
    Engine &engine_;
    Names &names_;
    Tell tell_;
    Present present_;
    std::unique_ptr<Store> store_;
    Status status_;
    Rates rates_;
    bool scratchFails_ = false;
    Seconds commitAt_ = 0;       // the next end of an hour, or of a slot after a failed commit
    std::int64_t sampledAt_ = 0; // by the running clock
    Moment lastLook_;            // at the clocks
    std::int64_t leaptAt_ = -1;  // by the running clock, when the other one leapt ahead
};

} // namespace usage
