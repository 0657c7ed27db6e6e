// Where the engine's facts come from: a scenario, an interface, or a capture file.
#pragma once

#include "engine/tables.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace idpfwd {

// One request of a caller, already fetched from its memory.
struct Request {
    std::uint8_t nr = 0;
    std::uint8_t op = 0;
    std::uint8_t inType = 0;
    std::uint32_t inValue = 0;       // in_u32
    std::vector<std::uint8_t> input; // what in_raw and in_len name, when in_type is 2
    std::uint32_t outLength = 0;     // the caller's capacity
};

struct Reply {
    int error = 0;                               // 0, or the errno that the ioctl fails with
    std::vector<std::uint8_t> output;            // goes to the caller's out, cut at its capacity
    std::optional<std::uint32_t> reportedLength; // what out_used_len says, if not output's size
};

class Source {
  public:
    virtual ~Source() = default;

    // A descriptor that becomes readable when the source has work, or -1.
    [[nodiscard]] virtual int descriptor() const = 0;

    // How long the source can be left alone, in milliseconds; -1 for ever.
    [[nodiscard]] virtual int timeout() const = 0;

    // Does the work that is due: reads packets, moves the scenario on, forgets devices.
    virtual void work() = 0;

    // True when the input has come to its end; the tables go on being served.
    [[nodiscard]] virtual bool finished() const = 0;

    // No more work will be done: counts everything that is still held back.
    virtual void stop() {}

    // Why the source is gone for good; empty while it is not.
    [[nodiscard]] virtual std::string failure() const { return ""; }

    // To be held by whoever uses the tables outside of work and stop, which take it themselves.
    [[nodiscard]] virtual std::unique_lock<std::mutex> lockTables() { return {}; }

    // Packets that the kernel dropped before the source could read them, since it was opened;
    // nothing where that is not known, or where there are no packets.
    [[nodiscard]] virtual std::optional<std::uint64_t> captureDrops() const { return std::nullopt; }

    // Asked first about every request. Without an answer the user list and the application rates
    // come from the tables, and everything else fails with ENOTTY.
    virtual std::optional<Reply> answer(const Request &) { return std::nullopt; }

    // What the database files call a category and an application; "" when they don't know it.
    [[nodiscard]] virtual std::string categoryName(std::uint8_t /*cat_id*/) const { return ""; }
    [[nodiscard]] virtual std::string applicationName(std::uint8_t /*cat_id*/,
                                                      std::uint16_t /*app_id*/) const {
        return "";
    }

    Tables tables;
};

} // namespace idpfwd
