// An index beside a list: finds by hash what a walk of the list would find first.
#pragma once

#include "common/file.h"

#include <bit>
#include <cstdint>
#include <cstdlib>

// Holds pointers to items, in the order in which they were added; items of the same hash are found
// in that order. Nothing is ever removed: an index is built, used and dropped.
template <typename Item>
class HashIndex {
  public:
    // Makes room for at most this many items. False when there was no memory: the caller walks the
    // list instead.
    bool reserve(std::size_t most) {
        mask_ = std::bit_ceil(2 * most + 1) - 1;
        slots_.reset(static_cast<Slot *>(calloc(mask_ + 1, sizeof(Slot))));
        return isUsable();
    }

    // Whether there is room; nothing else may be called before.
    [[nodiscard]] bool isUsable() const { return slots_ != nullptr; }

    void add(std::uint32_t hash, Item *item) {
        std::size_t i = hash & mask_;
        while (slots_.get()[i].item != nullptr)
            i = (i + 1) & mask_;
        slots_.get()[i] = {item, hash};
    }

    // The first item added under this hash that matches, or null.
    template <typename Matches>
    Item *find(std::uint32_t hash, Matches matches) const {
        for (std::size_t i = hash & mask_; slots_.get()[i].item != nullptr; i = (i + 1) & mask_) {
            if (slots_.get()[i].hash == hash && matches(slots_.get()[i].item))
                return slots_.get()[i].item;
        }
        return nullptr;
    }

  private:
    struct Slot {
        Item *item;
        std::uint32_t hash;
    };

    std::size_t mask_ = 0;
    Allocated<Slot> slots_;
};
