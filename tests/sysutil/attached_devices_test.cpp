#include "sysutil/attached_devices.h"

#include "support/fixture.h"

#include <arpa/inet.h>

namespace {

using AttachedDevices = rig::Fixture;

// Of 192.168.1.host to 00:00:00:00:00:mac.
std::string lease(char host, char mac, char expiry) {
    return std::string(5, '\0') + mac + std::string(10, '\0') + "\xc0\xa8\x01" + host +
           std::string(3, '\0') + expiry + std::string(64, '\0');
}

// A line for each device, then what is said on standard error.
template <typename Function, typename... More>
std::string list(Function function, int max, More... more) {
    attach_dev devices[10];
    int count = 0;
    const std::string error = rig::standardError([&] { count = function(devices, max, more...); });
    std::string result;
    for (int i = 0; i < count; ++i) {
        const attach_dev &device = devices[i];
        char text[100];
        snprintf(text, sizeof text, "%s %02x..%02x %d %s\n", inet_ntoa({device.ip}), device.mac[0],
                 device.mac[5], device.wired, device.ifname);
        result += text;
    }
    return result + error;
}

TEST_F(AttachedDevices, TheAttachmentTableTellsWiredFromWireless) {
    EXPECT_EQ(list(get_attach_dev, 10), "/proc/net/attadev: No such file or directory\n");
    const std::string longWord(600, 'v');
    rig::fakeCommand("wl");
    rig::writeFile("/proc/net/attadev",
                   longWord +
                       "\n\nC0A80102\nC0A80103 00:11:22:33:44\nXYZ 00:11:22:33:44:55 eth0\n"
                       "C0A80104 00:11:22:33:44:55\nC0A80104 " +
                       longWord + " eth0\n" + std::string("\0\xff\xfe\n", 4) +
                       "C0A80102 00:11:22:33:44:01 vlan1\nC0A80103 00:11:22:33:44:02 vlan2\n"
                       "C0A80104 00:11:22:33:44:03 eth0\nC0A80105 00:11:22:33:44:04 mytap7\n"
                       "C0A80106 00:11:22:33:44:05 vlan-of-a-great-length\n"
                       "00000000 00:11:22:33:44:06 eth1\nC0A80106FF 00:11:22:33:44:56 eth0");
    const std::string first = "192.168.1.2 00..01 1 vlan1\n192.168.1.3 00..02 1 vlan2\n";
    EXPECT_EQ(list(get_attach_dev, 10),
              first + "192.168.1.4 00..03 1 eth0\n192.168.1.5 00..04 1 mytap7\n"
                      "192.168.1.6 00..05 0 vlan-of-a-great\n0.0.0.0 00..06 0 eth1\n");
    rig::setSetting("enable_vlan", "enable");
    EXPECT_THAT(list(get_attach_dev, 10), testing::HasSubstr("00..05 1 vlan-of-a-great\n"));
    EXPECT_EQ(list(get_attach_dev, 2), first);
    EXPECT_EQ(list(get_attach_dev, -5), "");
}

TEST_F(AttachedDevices, StationsThatTheTableLacksAreAddedOnce) {
    rig::writeFile("/proc/net/attadev", "C0A80102 AA:00:00:00:00:01 eth1\n");
    rig::fakeCommand("wl",
                     "a='assoclist AA:00:00:00:00:0'; [ $2 = eth1 ] && "
                     "printf \"${a}1\\n${a}C\\n${a}C\\n\" || printf \"x\\n${a}B\\nCC:00:00\"");
    rig::fakeCommand("arp", "echo '? (192.168.1.9) at aa:00:00:00:00:0c [ether] on br0'");
    const std::string first = "192.168.1.2 aa..01 0 eth1\n192.168.1.9 aa..0c 0 eth1\n";
    EXPECT_EQ(list(get_attach_dev, 10), first + "0.0.0.0 aa..0b 0 eth2\n");
    EXPECT_FALSE(rig::fileExists("/tmp/tmp_assoclist"));
    EXPECT_EQ(list(get_attach_dev, 2), first);
}

TEST_F(AttachedDevices, NeighboursLeasesAndAttachmentsMakeOneList) {
    EXPECT_EQ(list(get_arp_dev, 10), "/proc/net/arp: No such file or directory\n");
    rig::writeFile("/proc/net/arp", "192.168.1.1 0x1 0x2 aa:00:00:00:00:09 * br0\n"
                                    "192.168.1.2 0x1 0x2 aa:00:00:00:00:01 * br0\n"
                                    "192.168.1.3 0x1 0x2 aa:00:00:00:00:02 * br0x\n"
                                    "192.168.1.5 0x1 0x2 aa:00:00:00:00 * br0\n"
                                    "192.168.1.555 0x1 0x2 aa:00:00:00:00:04 * br0\n192.168.1.6\n");
    EXPECT_EQ(list(get_arp_dev, 10), "/proc/net/attadev: No such file or directory\n");
    rig::writeFile("/proc/net/attadev",
                   "C0A80108 aa:00:00:00:00:05\nC0A8010A aa:00:00:00:00:06 eth0\n");
    rig::writeFile("/tmp/udhcpd.leases", lease(2, 7, 1) + lease(7, 8, 0) + lease(8, 9, 1) +
                                             lease(9, 10, 1).substr(0, 87));
    EXPECT_EQ(list(get_arp_dev, 10),
              "192.168.1.2 aa..01 0 \n192.168.1.8 00..09 0 \n192.168.1.10 aa..06 0 \n");
    EXPECT_EQ(list(get_arp_dev, 2), "192.168.1.2 aa..01 0 \n192.168.1.8 00..09 0 \n");
    EXPECT_EQ(list(get_arp_dev, 1), "192.168.1.2 aa..01 0 \n");
    EXPECT_EQ(list(get_arp_dev, 0), "");
    EXPECT_EQ(list(get_arp_dev2, 1, 1), "192.168.1.8 aa..05 0 \n");
    rig::writeFile("/proc/net/arp", "header\n");
    rig::writeFile("/tmp/udhcpd.leases", lease(2, 1, 0) + lease(3, 2, 0));
    EXPECT_EQ(list(get_arp_dev, 2), "192.168.1.2 00..01 0 \n192.168.1.8 aa..05 0 \n")
        << "expired, but the first of all";
}

TEST_F(AttachedDevices, AnAddressIsTakenFromTheFirstLineThatHasTheMac) {
    const unsigned char mac[6] = {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x0F};
    const std::string at = " at aa:bb:cc:dd:ee:0f\n";
    rig::fakeCommand("arp", "cat /listing");
    const std::pair<std::string, std::uint32_t> rows[] = {
        {"? (10.0.0.1) at aa:bb\n? (10.0.0.2)" + at + "? (10.0.0.3)", 0x0A000002},
        {"(10.0.0.2", 0},
        {"10.0.0.2)", 0},
        {"(255.255.255.2555)", 0},
        {"()", 0}};
    for (const auto &[listing, address] : rows) {
        rig::writeFile("/listing", listing + at);
        EXPECT_EQ(get_ip_from_arp(mac), htonl(address)) << listing;
        EXPECT_EQ(rig::fileExists("/tmp/arp"), address != 0) << "left in place after a success";
    }
}

} // namespace
