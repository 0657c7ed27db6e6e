#include "engine/mac_index.h"

#include <algorithm>
#include <bit>

namespace idpfwd {

std::optional<std::size_t> MacIndex::find(const Mac &mac) const {
    const std::uint64_t wanted = macNumber(mac);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = spread(wanted) & mask; slots_[i].position != 0; i = (i + 1) & mask) {
        if (slots_[i].mac == wanted)
            return slots_[i].position - 1;
    }
    return std::nullopt;
}

void MacIndex::insert(std::uint64_t mac, std::uint32_t position) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t i = spread(mac) & mask;
    while (slots_[i].position != 0 && slots_[i].mac != mac)
        i = (i + 1) & mask;
    if (slots_[i].position == 0)
        slots_[i] = {.mac = mac, .position = position};
}

void MacIndex::append(const Mac &mac) {
    insert(macNumber(mac), static_cast<std::uint32_t>(++users_));
}

void MacIndex::rebuild(std::span<const devid_user_entry> users) {
    const std::size_t least = 256;
    slots_.assign(std::bit_ceil(std::max(least, 4 * users.size())), {});
    users_ = 0;
    for (const devid_user_entry &user : users) {
        Mac mac;
        std::copy_n(user.mac, mac.size(), mac.begin());
        append(mac);
    }
}

} // namespace idpfwd
