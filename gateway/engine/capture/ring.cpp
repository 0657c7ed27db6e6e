#include "engine/capture/ring.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ifaddrs.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace idpfwd {
namespace {

// What is kept of a packet: an application shows in the first bytes, those of frames that
// segmentation offload has merged hold whole certificates.
constexpr int kSnapLength = 16'384;

// How long a block that is not full waits for more packets, in milliseconds.
constexpr int kBlockTime = 100;

constexpr sock_filter statement(int code, std::uint32_t operand = 0) {
    return {static_cast<std::uint16_t>(code), 0, 0, operand};
}

constexpr sock_filter unlessEqual(std::uint32_t value, std::uint8_t skipped) {
    return {BPF_JMP | BPF_JEQ | BPF_K, 0, skipped, value};
}

constexpr sock_filter load(int base, std::uint32_t offset) {
    return statement(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(base) + offset);
}

// A number that all packets between two addresses share, whichever way they go: the exclusive or of
// the addresses, spread. 0 for those that carry a tag or are no IP, or IP inside something else.
std::vector<sock_filter> ringChooser() {
    constexpr std::uint8_t kIpv4 = 5, kIpv6 = 23, kSpread = 3;
    std::vector<sock_filter> program = {
        load(SKF_AD_OFF, SKF_AD_VLAN_TAG_PRESENT),
        unlessEqual(0, 2 + kIpv4 + 1 + kIpv6 + kSpread),
        load(SKF_AD_OFF, SKF_AD_PROTOCOL),
        unlessEqual(ETHERTYPE_IP, kIpv4),
        load(SKF_NET_OFF, 12),
        statement(BPF_MISC | BPF_TAX),
        load(SKF_NET_OFF, 16),
        statement(BPF_ALU | BPF_XOR | BPF_X),
        statement(BPF_JMP | BPF_JA, 1 + kIpv6),
        unlessEqual(ETHERTYPE_IPV6, kIpv6 + kSpread),
        load(SKF_NET_OFF, 8),
        statement(BPF_MISC | BPF_TAX),
    };
    for (std::uint32_t offset = 12; offset < 40; offset += 4) {
        program.push_back(load(SKF_NET_OFF, offset));
        program.push_back(statement(BPF_ALU | BPF_XOR | BPF_X));
        program.push_back(statement(BPF_MISC | BPF_TAX));
    }
    program.push_back(statement(BPF_ALU | BPF_MUL | BPF_K, 0x9e3779b1));
    program.push_back(statement(BPF_ALU | BPF_RSH | BPF_K, 16));
    program.push_back(statement(BPF_RET | BPF_A));
    program.push_back(statement(BPF_RET | BPF_K, 0));
    return program;
}

bool attach(int socket, int level, int option, std::vector<sock_filter> program) {
    const sock_fprog filter{static_cast<std::uint16_t>(program.size()), program.data()};
    return setsockopt(socket, level, option, &filter, sizeof filter) == 0;
}

std::string because(const std::string &what) {
    return what + ": " + strerror(errno);
}

Pcap activate(const std::string &name, std::size_t size, std::string &error) {
    char reason[PCAP_ERRBUF_SIZE] = "";
    Pcap pcap(pcap_create(name.c_str(), reason));
    if (!pcap) {
        error = name + ": " + reason;
        return nullptr;
    }
    pcap_set_snaplen(pcap.get(), kSnapLength);
    pcap_set_promisc(pcap.get(), 1);
    pcap_set_timeout(pcap.get(), kBlockTime);
    pcap_set_buffer_size(pcap.get(), static_cast<int>(size));
    const int result = pcap_activate(pcap.get());
    if (result < 0) {
        const std::string kind = pcap_statustostr(result), detail = pcap_geterr(pcap.get());
        error = name + ": " + kind + (detail.empty() || detail == kind ? "" : " (" + detail + ")");
        return nullptr;
    }
    if (result > 0)
        fprintf(stderr, "idpfwd: %s: %s\n", name.c_str(), pcap_statustostr(result));
    if (pcap_setnonblock(pcap.get(), 1, reason) != 0) {
        error = name + ": " + reason;
        return nullptr;
    }
    return pcap;
}

bool isBefore(const timeval &a, const timeval &b) {
    return timercmp(&a, &b, <);
}

} // namespace

std::unique_ptr<Ring> Ring::open(const std::string &interface, std::size_t size,
                                 std::string &error) {
    Pcap pcap = activate(interface, size, error);
    if (!pcap || !isEthernet(pcap.get(), interface, error))
        return nullptr;
    // Else whole frames would take the ring's room, to be cut when they are read.
    if (!attach(pcap_fileno(pcap.get()), SOL_SOCKET, SO_ATTACH_FILTER,
                {statement(BPF_RET | BPF_K, kSnapLength)})) {
        error = because(interface + ": cannot limit what is kept of a packet");
        return nullptr;
    }
    return std::unique_ptr<Ring>(new Ring(std::move(pcap)));
}

// The first member makes a group that no one else has, the others join it.
bool Ring::join(int &group, std::string &error) const {
    const int socket = pcap_fileno(pcap_.get());
    const int unique = group == 0 ? PACKET_FANOUT_FLAG_UNIQUEID : 0;
    const int wanted = group | (PACKET_FANOUT_CBPF | unique) << 16;
    socklen_t size = sizeof group;
    if (setsockopt(socket, SOL_PACKET, PACKET_FANOUT, &wanted, sizeof wanted) != 0 ||
        getsockopt(socket, SOL_PACKET, PACKET_FANOUT, &group, &size) != 0) {
        error = because("cannot share the packets among readers");
        return false;
    }
    group &= 0xffff;
    return true;
}

bool Ring::share(const std::vector<Ring *> &rings, std::string &error) {
    int group = 0;
    for (const Ring *ring : rings)
        if (!ring->join(group, error))
            return false;
    if (!attach(pcap_fileno(rings[0]->pcap_.get()), SOL_PACKET, PACKET_FANOUT_DATA,
                ringChooser())) {
        error = because("cannot choose a reader by addresses");
        return false;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    for (Ring *ring : rings) {
        ring->sharedSince_ = now;
        ring->shared_ = steadyMilliseconds();
    }
    return true;
}

int Ring::read(int most, pcap_handler handler, void *user) {
    struct Context {
        Ring *ring;
        pcap_handler handler;
        void *user;
    } context{this, handler, user};
    const auto filter = [](u_char *given, const pcap_pkthdr *header, const u_char *bytes) {
        const auto *call = reinterpret_cast<const Context *>(given);
        if (!isBefore(header->ts, call->ring->sharedSince_))
            call->handler(static_cast<u_char *>(call->user), header, bytes);
    };
    if (sharedSince_.tv_sec == 0)
        return pcap_dispatch(pcap_.get(), most, handler, static_cast<u_char *>(user));
    // Whatever came before is in a closed block by then. Once it has been read the packets' times
    // are asked no more: the clock may be set back.
    const bool settled = steadyMilliseconds() - shared_ > 5 * kBlockTime;
    const int taken =
        pcap_dispatch(pcap_.get(), most, filter, reinterpret_cast<u_char *>(&context));
    if (settled && taken < most)
        sharedSince_ = {};
    return taken;
}

std::uint64_t Ring::drops() {
    tpacket_stats_v3 since{}; // the last time that it was asked
    socklen_t size = sizeof since;
    if (getsockopt(pcap_fileno(pcap_.get()), SOL_PACKET, PACKET_STATISTICS, &since, &size) == 0)
        drops_ += since.tp_drops;
    return drops_;
}

std::optional<Mac> ownAddress(const std::string &interface) {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return std::nullopt;
    std::optional<Mac> own;
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET ||
            interface != entry->ifa_name)
            continue;
        sockaddr_ll address{};
        std::memcpy(&address, entry->ifa_addr, sizeof address);
        if (address.sll_halen == ETH_ALEN)
            std::copy_n(address.sll_addr, ETH_ALEN, own.emplace().begin());
    }
    freeifaddrs(list);
    return own;
}

} // namespace idpfwd
