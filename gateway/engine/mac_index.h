// Finds the position of a device in the user table by its hardware address, in one or two looks
// however full the table is.
#pragma once

#include "dpi/usr_ioctl.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

namespace idpfwd {

using Mac = std::array<std::uint8_t, 6>;

// The address as a number; no two addresses share one.
inline std::uint64_t macNumber(const Mac &mac) {
    std::uint64_t number = 0;
    std::memcpy(&number, mac.data(), mac.size());
    return number;
}

// The address that has this number.
inline Mac macOf(std::uint64_t number) {
    Mac mac;
    std::memcpy(mac.data(), &number, mac.size());
    return mac;
}

// Spreads numbers over all 64 bits, so that any of them can choose a slot.
constexpr std::uint64_t spread(std::uint64_t number) {
    number *= 0x9e3779b97f4a7c15u;
    number ^= number >> 32;
    number *= 0xd6e8feb86659fd93u;
    return number ^ number >> 32;
}

class MacIndex {
  public:
    // Where the device is in the table that was last given; of records with the same address the
    // first one.
    [[nodiscard]] std::optional<std::size_t> find(const Mac &mac) const;

    // Follows a record that was put at the table's end.
    void append(const Mac &mac);

    // Follows any other change.
    void rebuild(std::span<const devid_user_entry> users);

  private:
    struct Slot {
        std::uint64_t mac = 0;
        std::uint32_t position = 0; // from 1; 0 for a free slot
    };

    void insert(std::uint64_t mac, std::uint32_t position);

    std::vector<Slot> slots_ = std::vector<Slot>(256); // a power of two, at most a quarter taken
    std::size_t users_ = 0;
};

} // namespace idpfwd
