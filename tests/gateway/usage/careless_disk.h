// A disk under the store that loses, when the power is cut, what was not synced. It is there for
// the whole executable: the calls that change files are its own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace usage::testing {

struct CarelessDisk {
    std::size_t steps = 0;        // writes and syncs so far
    std::size_t cutAt = SIZE_MAX; // the power is cut before this step: everything fails from there
    bool full = false;            // writes fail for want of room

    // As new, with nothing on it.
    void renew();
    // The power is back: files are as they were last synced, but that of the latest writes to each,
    // which were not synced, so many are there all the same.
    void restore(std::size_t survivingWrites);
};

extern CarelessDisk disk;

} // namespace usage::testing
