#include "engine/packets/dhcp.h"

#include <algorithm>

namespace idpfwd {
namespace {

constexpr std::size_t kHardwareAddress = 28;
constexpr std::size_t kCookie = 236;
constexpr std::size_t kOptions = 240;
constexpr std::array<std::uint8_t, 4> kMagic = {99, 130, 83, 99};

enum Option : std::uint8_t {
    kPad = 0,
    kHostName = 12,
    kParameters = 55,
    kVendorClass = 60,
    kEnd = 255,
};

std::string printable(Packet::Bytes value) {
    std::string text;
    for (const std::uint8_t octet : value) {
        if (octet == 0)
            break;
        text += octet >= ' ' && octet < 0x7f ? static_cast<char>(octet) : '_';
    }
    return text;
}

void take(std::uint8_t option, Packet::Bytes value, DhcpFacts &facts) {
    if (option == kHostName)
        facts.hostName = printable(value);
    else if (option == kVendorClass)
        facts.vendorClass = printable(value);
    else if (option == kParameters)
        facts.parameters.assign(value.begin(), value.end());
}

} // namespace

std::optional<DhcpFacts> readDhcpRequest(Packet::Bytes payload) {
    constexpr std::uint8_t kRequest = 1, kEthernet = 1, kMacLength = 6;
    if (payload.size() < kOptions || payload[0] != kRequest || payload[1] != kEthernet ||
        payload[2] != kMacLength ||
        !std::equal(kMagic.begin(), kMagic.end(), payload.begin() + kCookie))
        return std::nullopt;
    DhcpFacts facts;
    std::copy_n(payload.begin() + kHardwareAddress, facts.client.size(), facts.client.begin());
    Packet::Bytes rest = payload.subspan(kOptions);
    while (!rest.empty() && rest[0] != kEnd) {
        if (rest[0] == kPad) {
            rest = rest.subspan(1);
            continue;
        }
        if (rest.size() < 2 || rest.size() - 2 < rest[1])
            break;
        take(rest[0], rest.subspan(2, rest[1]), facts);
        rest = rest.subspan(2u + rest[1]);
    }
    return facts;
}

} // namespace idpfwd
