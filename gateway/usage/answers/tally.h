// A hash table from 64-bit keys to bytes, for sums over hundreds of thousands of entries.
#pragma once

#include "usage/types.h"

#include <vector>

namespace usage {

class Tally {
  public:
    Tally() : places_(kFirstSize) {}

    // The key may not be the largest number there is.
    Bytes &operator[](std::uint64_t key) {
        if (2 * used_ >= places_.size())
            grow();
        Place &place = find(places_, key);
        if (place.key == kFree) {
            place.key = key;
            ++used_;
        }
        return place.bytes;
    }

    // Keeps its room.
    void clear() {
        places_.assign(places_.size(), {});
        used_ = 0;
    }

    template <typename Visit>
    void each(Visit &&visit) const {
        for (const Place &place : places_) {
            if (place.key != kFree)
                visit(place.key, place.bytes);
        }
    }

  private:
    static constexpr std::uint64_t kFree = UINT64_MAX;
    static constexpr std::size_t kFirstSize = 256; // a power of two, as all sizes
    struct Place {
        std::uint64_t key = kFree;
        Bytes bytes;
    };

    static Place &find(std::vector<Place> &places, std::uint64_t key) {
        const std::size_t mask = places.size() - 1;
        std::size_t at = (key * 0x9E3779B97F4A7C15U) >> 32U & mask;
        while (places[at].key != kFree && places[at].key != key)
            at = (at + 1) & mask;
        return places[at];
    }

    void grow() {
        std::vector<Place> larger(2 * places_.size());
        for (const Place &place : places_) {
            if (place.key != kFree)
                find(larger, place.key) = place;
        }
        places_ = std::move(larger);
    }

    std::vector<Place> places_;
    std::size_t used_ = 0;
};

} // namespace usage
