// The reports that wait for the broker, in one SQLite file. What put() has returned from outlives a
// crash and a power cut; a report leaves when the broker has acknowledged it, or as the oldest one
// when the outbox is full, which is counted.
#pragma once

#include "usage/store/sqlite.h"
#include "usage/uplink/report.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

namespace uplink {

using usage::Database;
using usage::SqlDamage;
using usage::SqlError;

class Outbox {
  public:
    static constexpr const char *kFile = "outbox.db";

    // Opens the outbox in folder, or makes one with an identity of its own. limit is in bytes of
    // reports. Throws SqlDamage when the file holds none, SqlError when it can't be
    // used, also because another process has it open.
    Outbox(const std::filesystem::path &folder, std::int64_t limit);

    // 32 hexadecimal digits, random, made with the file.
    [[nodiscard]] const std::string &identity() const { return identity_; }
    // The highest sequence that was ever put in, 0 before the first.
    [[nodiscard]] std::int64_t last();

    // Puts a report in under its sequence, and drops the oldest ones while all are larger than the
    // limit; does nothing for a sequence up to last(), which has been in. Returns how many were
    // dropped.
    std::int64_t put(std::int64_t sequence, std::int64_t taken, std::string_view report);
    // The first message after that sequence.
    [[nodiscard]] std::optional<Message> next(std::int64_t after);
    void remove(std::span<const std::int64_t> sequences);

    [[nodiscard]] std::int64_t waiting();

  private:
    void create();
    std::int64_t makeRoom(std::int64_t size);

    Database database_;
    std::int64_t limit_;
    std::string identity_;
};

// Gives a damaged outbox, which no process has open, another name in its folder, "damaged-<number>-
// outbox.db", so that a new one can be made. The newest two are kept. Returns the name.
std::string setAside(const std::filesystem::path &folder);

} // namespace uplink
