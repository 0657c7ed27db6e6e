// A file system for SQLite in memory that loses, when the power is cut, what was not synced.
#pragma once

#include <cstddef>
#include <cstdint>

namespace usage::testing {

class CarelessVfs {
  public:
    static constexpr const char *kName = "careless";
    static constexpr std::size_t kNever = SIZE_MAX;

    CarelessVfs(); // the only one at a time; empty
    CarelessVfs(const CarelessVfs &) = delete;
    CarelessVfs &operator=(const CarelessVfs &) = delete;
    ~CarelessVfs();

    // The power is cut before the so-and-so-many-th write or sync from now on: everything fails.
    void cutAfter(std::size_t steps);
    // The power is back: files are as they were last synced, but that of the latest writes to each,
    // which were not synced, so many are there all the same.
    void restore(std::size_t survivingWrites);
    // Writes fail for want of room, or not.
    void fill(bool full);
    [[nodiscard]] std::size_t steps() const; // writes and syncs so far
};

} // namespace usage::testing
