#include "engine/packets/device_facts.h"

#include "engine/packets/dhcp.h"
#include "engine/packets/dhcp_devices.h"

#include <algorithm>
#include <cstring>

namespace idpfwd {
namespace {

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

void setArpSender(const Packet &packet, devid_user_entry &user) {
    if (const auto message = readArp(packet))
        setIpv4(message->sender, user);
}

void learnIpv4(const Packet &packet, devid_user_entry &user) {
    const auto source = std::span(packet.sourceAddress).first<4>();
    if (packet.version != 4)
        setArpSender(packet, user);
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

} // namespace

void learn(const Packet &packet, devid_user_entry &user, std::uint32_t seconds) {
    if (packet.inTunnel)
        return; // whose addresses they are shows nowhere
    if (packet.version == 6)
        learnIpv6(packet.sourceAddress, user);
    else
        learnIpv4(packet, user);
    learnIdentity(packet, user, seconds);
}

} // namespace idpfwd
