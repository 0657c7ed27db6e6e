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
    kMessageType = 53,
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

bool isMessage(Packet::Bytes payload, std::uint8_t direction) {
    constexpr std::uint8_t kEthernet = 1, kMacLength = 6;
    return payload.size() >= kOptions && payload[0] == direction && payload[1] == kEthernet &&
           payload[2] == kMacLength &&
           std::equal(kMagic.begin(), kMagic.end(), payload.begin() + kCookie);
}

Mac clientOf(Packet::Bytes message) {
    Mac client;
    std::copy_n(message.begin() + kHardwareAddress, client.size(), client.begin());
    return client;
}

// Calls take(option, value) for each option up to the end, or to where the message was cut.
template <typename Take>
void eachOption(Packet::Bytes message, Take take) {
    Packet::Bytes rest = message.subspan(kOptions);
    while (!rest.empty() && rest[0] != kEnd) {
        if (rest[0] == kPad) {
            rest = rest.subspan(1);
            continue;
        }
        if (rest.size() < 2 || rest.size() - 2 < rest[1])
            break;
        take(rest[0], rest.subspan(2, rest[1]));
        rest = rest.subspan(2u + rest[1]);
    }
}

} // namespace

std::optional<DhcpFacts> readDhcpRequest(Packet::Bytes payload) {
    constexpr std::uint8_t kRequest = 1;
    if (!isMessage(payload, kRequest))
        return std::nullopt;
    DhcpFacts facts;
    facts.client = clientOf(payload);
    eachOption(payload,
               [&](std::uint8_t option, Packet::Bytes value) { take(option, value, facts); });
    return facts;
}

std::optional<Mac> readDhcpLease(Packet::Bytes payload) {
    constexpr std::uint8_t kReply = 2, kAcknowledged = 5;
    bool acknowledged = false;
    if (isMessage(payload, kReply))
        eachOption(payload, [&](std::uint8_t option, Packet::Bytes value) {
            acknowledged |=
                option == kMessageType && value.size() == 1 && value[0] == kAcknowledged;
        });
    return acknowledged ? std::optional(clientOf(payload)) : std::nullopt;
}

} // namespace idpfwd
