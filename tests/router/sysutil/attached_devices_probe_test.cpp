// The probing runs for real, in a network namespace that the test makes for itself: "br0" is one
// end of a virtual cable, and the other end hears what comes out.
#include "sysutil/attached_devices.h"

#include "support/fixture.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <linux/if_ether.h>
#include <sched.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

// The waits between rounds cost the tests no time; each is interrupted once.
extern "C" int nanosleep(const timespec *, timespec *) {
    static bool interrupted = false;
    interrupted = !interrupted;
    errno = EINTR;
    return interrupted ? -1 : 0;
}

namespace {

using Probing = rig::Fixture;
using Frames = std::vector<std::string>;

std::string requestFor(char host) {
    return std::string("\xff\xff\xff\xff\xff\xff\x02\0\0\0\0\x01\x08\x06" // the Ethernet header
                       "\0\x01\x08\0\x06\x04\0\x01"
                       "\x02\0\0\0\0\x01\xc0\xa8\x01\x01"
                       "\0\0\0\0\0\0\xc0\xa8\x01",
                       41) +
           host + std::string(18, '\0');
}

// The calling thread gets a network namespace, which ends with it, and a cable in it. Gives the
// reason when the machine refuses.
std::string makeNetwork() {
    if (unshare(CLONE_NEWNET) != 0)
        return std::string("unshare(CLONE_NEWNET): ") + strerror(errno);
    // The end that speaks comes up last: it has its carrier, and drops nothing, from the start.
    const bool made = system("busybox ip link add br0 type veth &&"
                             "busybox ip link set veth0 arp off up &&"
                             "busybox ip link set br0 arp off up") == 0;
    return made ? "" : "no virtual cable";
}

// What the far end of the cable hears of one refresh.
Frames probe(int flag, std::string &refusal) {
    Frames frames;
    std::thread([&] {
        refusal = makeNetwork();
        if (!refusal.empty())
            return;
        const int far = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, htons(ETH_P_ARP));
        attach_dev devices[10];
        EXPECT_EQ(flag == 0 ? get_bdg_dev(devices, 10) : get_bdg_dev2(devices, 10, flag), 6);
        EXPECT_STREQ(devices[0].ifname, "eth1") << "the whole table, not the seed";
        char frame[2000];
        for (ssize_t n; (n = recv(far, frame, sizeof frame, 0)) >= 0;)
            frames.emplace_back(frame, static_cast<std::size_t>(n));
        close(far);
    }).join();
    return frames;
}

TEST_F(Probing, ThreeRoundsAskEveryLanAddressUpToAnUnknownOne) {
    rig::setSetting("lan_ipaddr", "192.168.1.1");
    rig::setSetting("lan_netmask", "255.255.255.0");
    rig::fakeCommand("wl");
    // In the LAN, the router itself, another network, in the LAN, no address, in the LAN.
    rig::writeFile("/proc/net/attadev",
                   "C0A80102 aa:00:00:00:00:01 eth1\nC0A80101 aa:00:00:00:00:02 eth1\n"
                   "0A000001 aa:00:00:00:00:03 eth1\nC0A801FE aa:00:00:00:00:04 eth1\n"
                   "00000000 aa:00:00:00:00:05 eth1\nC0A80105 aa:00:00:00:00:06 eth1\n");
    rig::writeFile("/proc/net/arp", "header\n192.168.1.9 0x1 0x2 aa:00:00:00:00:09 * br0\n");
    std::string refusal;
    EXPECT_EQ(probe(1, refusal), Frames{}) << "the router's own MAC is not set";
    if (!refusal.empty())
        GTEST_SKIP() << "no network of the test's own on this machine: " << refusal;
    rig::setSetting("lan_hwaddr", "02:00:00:00:00:01");
    const std::string first = requestFor('\x02');
    const std::string second = requestFor('\xfe');
    EXPECT_EQ(probe(1, refusal), Frames({first, second, first, second, first, second}));
    EXPECT_EQ(probe(0, refusal).at(0), requestFor('\x09')) << "the ARP table comes first";
}

} // namespace
