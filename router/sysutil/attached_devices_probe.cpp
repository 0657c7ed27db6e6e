// Refreshing the ARP table by asking every known address before the devices are listed.
#include "common/command.h"
#include "common/file.h"
#include "common/text.h"
#include "platform/nvram.h"
#include "sysutil/attached_devices.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <span>
#include <sys/socket.h>

namespace {

constexpr const char *kBridge = "br0";
constexpr int kRounds = 3;
constexpr long kRoundWaitNanoseconds = 500'000'000;

// An ARP request in its Ethernet frame, padded to the shortest length a frame may have.
struct [[gnu::packed]] ArpRequest {
    unsigned char destination[6];
    unsigned char source[6];
    std::uint16_t ether_type;
    std::uint16_t hardware_type;
    std::uint16_t protocol;
    std::uint8_t hardware_length;
    std::uint8_t protocol_length;
    std::uint16_t operation;
    unsigned char sender_mac[6];
    std::uint32_t sender_address;
    unsigned char target_mac[6];
    std::uint32_t target_address;
    unsigned char padding[18];
};
static_assert(sizeof(ArpRequest) == 60);
static_assert(offsetof(ArpRequest, destination) == 0);
static_assert(offsetof(ArpRequest, source) == 6);
static_assert(offsetof(ArpRequest, ether_type) == 12);
static_assert(offsetof(ArpRequest, hardware_type) == 14);
static_assert(offsetof(ArpRequest, protocol) == 16);
static_assert(offsetof(ArpRequest, hardware_length) == 18);
static_assert(offsetof(ArpRequest, protocol_length) == 19);
static_assert(offsetof(ArpRequest, operation) == 20);
static_assert(offsetof(ArpRequest, sender_mac) == 22);
static_assert(offsetof(ArpRequest, sender_address) == 28);
static_assert(offsetof(ArpRequest, target_mac) == 32);
static_assert(offsetof(ArpRequest, target_address) == 38);
static_assert(offsetof(ArpRequest, padding) == 42);

struct Lan {
    std::uint32_t address; // network byte order, as the mask
    std::uint32_t mask;
};

bool read_address(const char *setting, std::uint32_t &address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, kelpNvramConfig_get(setting), &parsed) != 1)
        return false;
    address = parsed.s_addr;
    return true;
}

bool read_lan(Lan &lan) {
    return read_address("lan_ipaddr", lan.address) && read_address("lan_netmask", lan.mask);
}

bool is_neighbour(const Lan &lan, std::uint32_t address) {
    return address != lan.address && (address & lan.mask) == (lan.address & lan.mask);
}

ArpRequest make_request(const unsigned char *lan_mac, const Lan &lan, std::uint32_t target) {
    ArpRequest request{};
    memset(request.destination, 0xFF, sizeof request.destination);
    memcpy(request.source, lan_mac, sizeof request.source);
    request.ether_type = htons(ETH_P_ARP);
    request.hardware_type = htons(1);
    request.protocol = htons(ETH_P_IP);
    request.hardware_length = ETH_ALEN;
    request.protocol_length = sizeof request.sender_address;
    request.operation = htons(1);
    memcpy(request.sender_mac, lan_mac, sizeof request.sender_mac);
    request.sender_address = lan.address;
    request.target_address = target;
    return request;
}

bool send_request(int packet_socket, const ArpRequest &request) {
    sockaddr_pkt bridge{};
    bridge.spkt_family = AF_PACKET;
    memcpy(bridge.spkt_device, kBridge, strlen(kBridge));
    bridge.spkt_protocol = htons(ETH_P_ARP);
    return sendto(packet_socket, &request, sizeof request, 0,
                  reinterpret_cast<const sockaddr *>(&bridge), sizeof bridge) == sizeof request;
}

// False when nothing could be asked; an address of 0 ends the devices, a failed send the round.
bool probe(std::span<const attach_dev> devices, const unsigned char *lan_mac) {
    Lan lan{};
    if (!read_lan(lan))
        return false;
    const Descriptor packet_socket(socket(AF_PACKET, SOCK_PACKET, htons(ETH_P_ARP)));
    const int on = 1;
    if (!packet_socket ||
        setsockopt(packet_socket.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0)
        return false;
    for (const attach_dev &device : devices) {
        if (device.ip == 0)
            break;
        if (is_neighbour(lan, device.ip) &&
            !send_request(packet_socket.get(), make_request(lan_mac, lan, device.ip)))
            break;
    }
    return true;
}

// The answers arrive meanwhile.
void wait_for_answers() {
    timespec left = {0, kRoundWaitNanoseconds};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

} // namespace

int get_bdg_dev2(attach_dev *devices, int max, int flag) {
    const int seeds = flag == 0 ? get_arp_dev(devices, max) : get_arp_dev2(devices, max, 1);
    unsigned char lan_mac[6];
    // Without the router's own MAC a request would spoil the tables of those who hear it.
    const bool has_mac = parse_mac(kelpNvramConfig_get("lan_hwaddr"), lan_mac);
    run_command(64, "cat /proc/net/delatta");
    for (int round = 0; has_mac && round < kRounds; ++round) {
        if (probe(std::span(devices, static_cast<std::size_t>(seeds)), lan_mac))
            wait_for_answers();
    }
    return get_attach_dev(devices, max);
}

int get_bdg_dev(attach_dev *devices, int max) {
    return get_bdg_dev2(devices, max, 0);
}
