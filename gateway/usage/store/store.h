// The history on disk, see docs/history_format.md. One service writes it; others may read it while
// none does.
#pragma once

#include "common/file.h"
#include "usage/store/present.h"
#include "usage/store/sqlite.h"

#include <functional>
#include <optional>

namespace usage {

// The store can't be used; what is there was not touched.
class StoreError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct StoreOptions {
    std::string folder;
    std::uint64_t limit = 64U << 20U; // bytes; the oldest is given up beyond it
};

class Store {
  public:
    // For the service: makes the store when there is none, sets a damaged one aside (see
    // setAsideAs), fills present with what the last commit kept. Throws StoreError when another
    // service has it, when it is another program's or a later version's, or when its folder does
    // not let itself be written.
    Store(StoreOptions options, Present &present);

    // For reading what is committed while no service runs. Throws StoreError when that is not
    // possible.
    static std::unique_ptr<Store> openToRead(const std::string &folder, Present &present);

    // Makes all of present durable, or throws SqlError and changes nothing. Finished hours, days
    // and months are made, and what is too old or too much is given up. What the device named here
    // had becomes the others'.
    void commit(Present &present, DeviceId forgotten = kOthers);

    // Calls back for the periods of a level that lie in the span, in order.
    using Visitor = std::function<void(const Span &, PackedView)>;
    void each(Level level, const Span &span, const Visitor &visit) const;

    // The period that the time lies inside of, not at its border.
    [[nodiscard]] std::optional<Span> periodAround(Level level, Seconds time) const;

    // Makes a copy that another connection may open. Throws SqlError.
    void backUp(const std::string &file) const;

    // Puts a damaged store aside and begins an empty one, which the next commit fills. Throws
    // StoreError: one that can't be put aside is used on; an empty one that can't be begun is begun
    // by the next commit, and until then whoever reads gets an SqlError.
    void startAnew(Present &present);

    // Under which name a damaged store was put aside by this object; "" when none was.
    [[nodiscard]] const std::string &setAsideAs() const { return setAsideAs_; }

    // What was given up to keep the size, since this was last asked; "" for nothing.
    std::string takeNote();

    [[nodiscard]] std::uint64_t usedBytes() const;

  private:
    struct Progress; // how far periods are made and kept
    Store() = default;

    void lockFolder();
    void openWhenReadersLeft(Present &present);
    void openService(Present &present);
    void begin();
    void setAside();
    void check();
    void load(Present &present) const;
    [[nodiscard]] Database &database() const; // to read; throws SqlError when there is none

    void writeDirectory(const Directory &directory);
    void addSlots(const Slots &slots);
    void write(Level level, const Span &span, const Traffic &traffic);
    [[nodiscard]] std::optional<Seconds> firstFrom(Level level, Seconds from) const;
    void rollUp(Level level, Progress &progress, Seconds now);
    void trimByAge(Progress &progress, Seconds now);
    void trimBySize(Progress &progress);
    bool trimOldest(Level level, Progress &progress);
    void forgetEverywhere(DeviceId device);
    void emptyLog();
    void dropUnused(Directory &directory, Seconds now);
    void writePresent(const Present &present, const Progress &progress, std::uint64_t name);

    StoreOptions options_;
    std::unique_ptr<Descriptor> lock_; // held for as long as a service has the store
    std::unique_ptr<Database> database_;
    std::string setAsideAs_;
    std::string note_;
};

// The file of the store in its folder.
std::string storeFile(const std::string &folder);

} // namespace usage
