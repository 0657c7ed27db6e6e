#include "engine/packets/packet.h"

#include <algorithm>

namespace idpfwd {
namespace {

using Bytes = Packet::Bytes;

constexpr std::uint16_t kTypeIpv4 = 0x0800;
constexpr std::uint16_t kTypeArp = 0x0806;
constexpr std::uint16_t kTypeIpv6 = 0x86dd;
constexpr std::uint16_t kTypeMpls = 0x8847;
constexpr std::uint16_t kTypeMplsGroup = 0x8848;
constexpr std::uint16_t kTypePppoeSession = 0x8864;
constexpr std::size_t kIpv4Header = 20;
constexpr std::size_t kIpv6Header = 40;
constexpr std::size_t kUdpHeader = 8;
constexpr std::size_t kTcpHeader = 20;
constexpr std::size_t kArpIpv4 = 28;

std::uint16_t word(Bytes bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

Mac macAt(Bytes bytes, std::size_t offset) {
    Mac mac;
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), mac.size(), mac.begin());
    return mac;
}

Packet::Address addressAt(Bytes bytes, std::size_t offset, std::size_t size) {
    Packet::Address address{};
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), size, address.begin());
    return address;
}

bool isTag(std::uint16_t type) {
    return type == 0x8100 || type == 0x88a8 || type == 0x9100;
}

void readIpv4(Bytes bytes, Packet &packet);
void readIpv6(Bytes bytes, Packet &packet);

// A tunnel carries its packets whole. One that is damaged leaves the tunnel's own.
void readTunnel(Bytes inner, Packet &packet) {
    Packet found = packet;
    found.inTunnel = true;
    found.version = 0;
    if (packet.protocol == kProtocolIpv4)
        readIpv4(inner, found);
    else
        readIpv6(inner, found);
    if (found.version != 0)
        packet = found;
}

void readPorts(Bytes transport, Packet &packet) {
    packet.hasPorts = true;
    packet.sourcePort = word(transport, 0);
    packet.destinationPort = word(transport, 2);
    std::size_t header = kUdpHeader;
    if (packet.protocol == kProtocolTcp) {
        if (transport.size() < kTcpHeader)
            return;
        packet.tcpFlags = transport[13];
        header = std::max<std::size_t>((transport[12] >> 4) * 4u, kTcpHeader);
    }
    if (transport.size() > header)
        packet.payload = transport.subspan(header);
}

void readTransport(Bytes transport, Packet &packet) {
    const bool tunnel = packet.protocol == kProtocolIpv4 || packet.protocol == kProtocolIpv6;
    if (tunnel && !packet.fragment && !packet.inTunnel)
        readTunnel(transport, packet);
    else if ((packet.protocol == kProtocolTcp || packet.protocol == kProtocolUdp) &&
             !packet.laterFragment && transport.size() >= 4)
        readPorts(transport, packet);
}

// Segmentation offload may leave the length at 0: then everything captured belongs to the packet.
Bytes withoutPadding(Bytes bytes, std::size_t length) {
    return length == 0 || length >= bytes.size() ? bytes : bytes.first(length);
}

void readIpv4(Bytes bytes, Packet &packet) {
    if (bytes.size() < kIpv4Header || bytes[0] >> 4 != 4)
        return;
    const std::size_t header = (bytes[0] & 15u) * 4u;
    const std::size_t total = word(bytes, 2);
    if (header < kIpv4Header || (total != 0 && total < header))
        return;
    packet.version = 4;
    packet.sourceAddress = addressAt(bytes, 12, 4);
    packet.destinationAddress = addressAt(bytes, 16, 4);
    packet.protocol = bytes[9];
    packet.fragmentId = word(bytes, 4);
    packet.laterFragment = (word(bytes, 6) & 0x1fff) != 0;
    packet.fragment = packet.laterFragment || (word(bytes, 6) & 0x2000) != 0;
    packet.ip = withoutPadding(bytes, total);
    if (packet.ip.size() > header)
        readTransport(packet.ip.subspan(header), packet);
}

// Moves over one extension header. False when there is none, or it was not wholly captured.
bool skipExtension(Bytes &rest, Packet &packet) {
    constexpr std::uint8_t kHopByHop = 0, kRouting = 43, kFragment = 44, kAuthentication = 51,
                           kDestination = 60;
    const std::uint8_t kind = packet.protocol;
    std::size_t size = 8;
    if (rest.size() < size)
        return false;
    if (kind == kHopByHop || kind == kRouting || kind == kDestination)
        size = (rest[1] + 1u) * 8u;
    else if (kind == kAuthentication)
        size = (rest[1] + 2u) * 4u;
    else if (kind != kFragment)
        return false;
    if (rest.size() < size)
        return false;
    if (kind == kFragment) {
        packet.fragment = true;
        packet.laterFragment = (word(rest, 2) & 0xfff8) != 0;
        packet.fragmentId = static_cast<std::uint32_t>(word(rest, 4)) << 16 | word(rest, 6);
    }
    packet.protocol = rest[0];
    rest = rest.subspan(size);
    return !packet.laterFragment;
}

void readIpv6(Bytes bytes, Packet &packet) {
    if (bytes.size() < kIpv6Header || bytes[0] >> 4 != 6)
        return;
    packet.version = 6;
    packet.sourceAddress = addressAt(bytes, 8, 16);
    packet.destinationAddress = addressAt(bytes, 24, 16);
    packet.protocol = bytes[6];
    const std::size_t payload = word(bytes, 4);
    packet.ip = withoutPadding(bytes, payload == 0 ? 0 : kIpv6Header + payload);
    Bytes rest = packet.ip.subspan(kIpv6Header);
    while (skipExtension(rest, packet)) {
    }
    readTransport(rest, packet);
}

void readTags(Packet &packet) {
    while (isTag(packet.etherType) && packet.network.size() >= 4) {
        packet.vlan = packet.vlan << 12 | (word(packet.network, 0) & 0xfffu);
        packet.etherType = word(packet.network, 2);
        packet.network = packet.network.subspan(4);
    }
}

// A session of a subscriber's line. PPP may leave out the first octet of a protocol's number.
void readPppoe(Packet &packet) {
    constexpr std::size_t kHeader = 6;
    constexpr std::uint16_t kPppIpv4 = 0x21, kPppIpv6 = 0x57;
    const Bytes bytes = packet.network;
    if (packet.etherType != kTypePppoeSession || bytes.size() < kHeader + 2 || bytes[0] != 0x11)
        return;
    const bool shortened = (bytes[kHeader] & 1) != 0;
    const std::uint16_t protocol = shortened ? bytes[kHeader] : word(bytes, kHeader);
    if (protocol != kPppIpv4 && protocol != kPppIpv6)
        return;
    packet.vlan = packet.vlan << 16 | word(bytes, 2);
    packet.etherType = protocol == kPppIpv4 ? kTypeIpv4 : kTypeIpv6;
    const Bytes session = withoutPadding(bytes, kHeader + word(bytes, 4));
    packet.network = session.subspan(std::min(session.size(), kHeader + (shortened ? 1u : 2u)));
}

// What the labels carry shows only in its first four bits. The labels of the two directions have
// nothing in common, so they don't tell conversations apart.
void readMpls(Packet &packet) {
    constexpr std::size_t kLabel = 4;
    Bytes rest = packet.network;
    bool last = packet.etherType != kTypeMpls && packet.etherType != kTypeMplsGroup;
    if (last)
        return;
    while (!last && rest.size() > kLabel) {
        last = (rest[2] & 1) != 0;
        rest = rest.subspan(kLabel);
    }
    const int version = last ? rest[0] >> 4 : 0;
    if (version != 4 && version != 6)
        return;
    packet.etherType = version == 4 ? kTypeIpv4 : kTypeIpv6;
    packet.network = rest;
}

} // namespace

bool parseFrame(Bytes frame, Packet &packet) {
    packet = {};
    if (frame.size() < kEthernetHeader)
        return false;
    packet.destination = macAt(frame, 0);
    packet.source = macAt(frame, 6);
    packet.etherType = word(frame, 12);
    packet.network = frame.subspan(kEthernetHeader);
    readTags(packet);
    readMpls(packet);
    readPppoe(packet);
    if (packet.etherType == kTypeIpv4)
        readIpv4(packet.network, packet);
    else if (packet.etherType == kTypeIpv6)
        readIpv6(packet.network, packet);
    return true;
}

std::optional<ArpMessage> readArp(const Packet &packet) {
    const Bytes arp = packet.network;
    const bool ipv4OverEthernet = packet.etherType == kTypeArp && arp.size() >= kArpIpv4 &&
                                  word(arp, 0) == 1 && word(arp, 2) == kTypeIpv4 && arp[4] == 6 &&
                                  arp[5] == 4;
    // The sender it names must be the one that sent it: others may answer on a device's behalf.
    if (!ipv4OverEthernet || macAt(arp, 8) != packet.source)
        return std::nullopt;
    ArpMessage message;
    message.isReply = word(arp, 6) == 2;
    std::copy_n(arp.begin() + 14, message.sender.size(), message.sender.begin());
    std::copy_n(arp.begin() + 24, message.target.size(), message.target.begin());
    return message;
}

} // namespace idpfwd
