#include "engine/packets/packet_accounting.h"

#include "engine/packets/dhcp.h"
#include "engine/packets/dhcp_devices.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace idpfwd {
namespace {

constexpr std::uint16_t kDhcpServerPort = 67;

bool isLinkLocal(const std::uint8_t *ipv6) {
    return ipv6[0] == 0xfe && (ipv6[1] & 0xc0) == 0x80;
}

bool isUnset(std::span<const std::uint8_t> address) {
    return std::all_of(address.begin(), address.end(), [](auto octet) { return octet == 0; });
}

void setIpv4(std::span<const std::uint8_t, 4> address, devid_user_entry &user) {
    if (!isUnset(address))
        std::copy(address.begin(), address.end(), user.ipv4);
}

// A device that passes other hosts' packets on sends from their addresses too: only those that
// networks at home use are taken for its own.
bool isAtHome(std::span<const std::uint8_t, 4> ipv4) {
    return ipv4[0] == 10 || (ipv4[0] == 172 && (ipv4[1] & 0xf0) == 16) ||
           (ipv4[0] == 192 && ipv4[1] == 168) || (ipv4[0] == 169 && ipv4[1] == 254) ||
           (ipv4[0] == 100 && (ipv4[1] & 0xc0) == 64);
}

void learnIpv4(const Packet &packet, devid_user_entry &user) {
    const auto source = std::span(packet.sourceAddress).first<4>();
    if (packet.version != 4)
        setIpv4(arpSender(packet), user);
    else if (isAtHome(source))
        setIpv4(source, user);
}

// A device has a link-local address beside the one that it talks to the world with.
void learnIpv6(const Packet::Address &address, devid_user_entry &user) {
    const bool host = address[0] != 0xff && !isUnset(std::span(address).first(15));
    if (host && (!isLinkLocal(address.data()) || isUnset(user.ipv6)))
        std::copy(address.begin(), address.end(), user.ipv6);
}

void learnIdentity(const Packet &packet, devid_user_entry &user, std::uint32_t seconds) {
    if (packet.protocol != kProtocolUdp || packet.destinationPort != kDhcpServerPort)
        return;
    const auto facts = readDhcpRequest(packet.payload);
    if (!facts || facts->client != packet.source)
        return;
    if (!facts->hostName.empty()) {
        std::memset(user.host_name, 0, sizeof user.host_name);
        facts->hostName.copy(user.host_name, sizeof user.host_name - 1);
    }
    const Identification found = identify(*facts);
    if (found.kind == nullptr || found.priority < user.os.de_prio)
        return;
    user.os.detail = found.kind->ids;
    user.os.de_prio = found.priority;
    user.os.update = 1;
    user.os.update_time = seconds;
}

void learn(const Packet &packet, devid_user_entry &user, std::uint32_t seconds) {
    if (packet.version == 6)
        learnIpv6(packet.sourceAddress, user);
    else
        learnIpv4(packet, user);
    learnIdentity(packet, user, seconds);
}

} // namespace

PacketAccounting::PacketAccounting(Tables &tables, Classifier &classifier,
                                   std::optional<Mac> gateway, std::uint32_t forgetSeconds)
    : tables_(tables), gateway_(gateway), forgetSeconds_(forgetSeconds), flows_(classifier, *this) {
}

bool PacketAccounting::isClient(const Mac &mac) const {
    return isDevice(mac) && mac != gateway_;
}

// The device's stay, 0 when the tables have no room for it.
std::uint64_t PacketAccounting::see(const Mac &mac, const Packet &packet) {
    devid_user_entry *user = tables_.seeUser(mac, now_);
    if (user != nullptr && mac == packet.source)
        learn(packet, *user, now_.seconds);
    return tables_.stay(mac);
}

void PacketAccounting::add(Packet::Bytes captured, std::uint32_t length, const Moment &now) {
    Packet packet;
    if (!parseFrame(captured, packet))
        return;
    now_ = now;
    ++frames_;
    gatewaySeen_ |= packet.source == gateway_ || packet.destination == gateway_;
    std::array<Holding, 2> concerned;
    std::size_t count = 0;
    if (isClient(packet.source))
        concerned[count++] = {packet.source, 0, {0, length, 0, 1}};
    if (isClient(packet.destination))
        concerned[count++] = {packet.destination, 0, {length, 0, 1, 0}};
    const auto holdings = std::span(concerned).first(count);
    for (Holding &holding : holdings)
        holding.stay = see(holding.mac, packet);
    if (packet.version != 0 && count != 0)
        flows_.add(packet, holdings, now);
    else
        for (const Holding &holding : holdings)
            this->count(holding, {});
}

// What was held for a device that has been forgotten since went with its rows.
void PacketAccounting::count(const Holding &holding, const Application &application) {
    if (holding.stay == 0 || holding.stay == tables_.stay(holding.mac))
        tables_.addTraffic(holding.mac, application.category, application.id, holding.traffic,
                           now_);
}

void PacketAccounting::advance(const Moment &now) {
    constexpr std::uint64_t kSweep = 1000;
    now_ = now;
    flows_.expire(now.milliseconds);
    if (now.milliseconds - lastSweep_ < kSweep)
        return;
    lastSweep_ = now.milliseconds;
    tables_.forgetUnseen(now, forgetSeconds_);
}

} // namespace idpfwd
