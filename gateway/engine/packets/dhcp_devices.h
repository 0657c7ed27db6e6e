// The kinds of devices that can be told from what they say by DHCP.
#pragma once

#include "dpi/usr_ioctl.h"
#include "engine/packets/dhcp.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace idpfwd {

// One kind of device: its identifiers, and what the device database calls them. The same
// identifier has the same name in every kind.
struct DeviceKind {
    devid_os_detail ids;
    std::string_view vendor;
    std::string_view os;
    std::string_view deviceClass;
    std::string_view type;
    std::string_view device;
    std::string_view family;
};

[[nodiscard]] std::span<const DeviceKind> deviceKinds();

struct Identification {
    const DeviceKind *kind = nullptr; // null when nothing is known
    std::uint16_t priority = 0;       // how far it can be trusted; more is better
};

[[nodiscard]] Identification identify(const DhcpFacts &facts);

} // namespace idpfwd
