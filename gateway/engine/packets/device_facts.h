// What the frames that a device sends say of it: its addresses, its name, what kind it is.
#pragma once

#include "engine/packets/packet.h"

#include <cstdint>

namespace idpfwd {

constexpr std::uint16_t kDhcpServerPort = 67;

// Fills the record of the device that has sent the packet, at this time in seconds.
void learn(const Packet &packet, devid_user_entry &user, std::uint32_t seconds);

} // namespace idpfwd
