#include "sysutil/attached_devices.h"

#include "support/fixture.h"

#include <arpa/inet.h>
#include <filesystem>

namespace {

using AttachedDevices = rig::Fixture;

// Of 192.168.1.host to 00:00:00:00:00:mac.
std::string lease(char host, char mac, char expiry) {
    return std::string(5, '\0') + mac + std::string(10, '\0') + "\xc0\xa8\x01" + host +
           std::string(3, '\0') + expiry + std::string(64, '\0');
}

// A line for each device.
std::string list(int (*function)(attach_dev *, int), int max) {
    attach_dev devices[10];
    const int count = function(devices, max);
    std::string result;
    for (int i = 0; i < count; ++i) {
        const attach_dev &device = devices[i];
        char text[100];
        snprintf(text, sizeof text, "%s %02x..%02x %d %s\n", inet_ntoa({device.ip}), device.mac[0],
                 device.mac[5], device.wired, device.ifname);
        result += text;
    }
    return result;
}

TEST_F(AttachedDevices, TheAttachmentTableTellsWiredFromWireless) {
    rig::fakeCommand("wl");
    rig::writeFile("/proc/net/attadev",
                   "C0A80102\nC0A80103 00:11:22:33:44 eth0\nC0A80104 00:11:22:33:44:55\n"
                   "C0A80102 00:11:22:33:44:01 vlan1\n00000000 00:11:22:33:44:06 eth1\n"
                   "C0A80106 00:11:22:33:44:05 vlan-of-a-great-length\n"
                   "C0A80105 00:11:22:33:44:04 mytap7\nC0A80107 00:11:22:33:44:07 vlan2\n"
                   "C0A80108 00:11:22:33:44:08 eth0\n");
    const std::string first = "192.168.1.2 00..01 1 vlan1\n0.0.0.0 00..06 0 eth1\n192.168.1.6 ";
    EXPECT_EQ(list(get_attach_dev, 10),
              first + "00..05 0 vlan-of-a-great\n192.168.1.5 00..04 1 mytap7\n"
                      "192.168.1.7 00..07 1 vlan2\n192.168.1.8 00..08 1 eth0\n");
    rig::setSetting("enable_vlan", "enable");
    EXPECT_EQ(list(get_attach_dev, 3), first + "00..05 1 vlan-of-a-great\n");
}

TEST_F(AttachedDevices, StationsThatTheTableLacksAreAddedOnceWithTheAddressThatArpKnows) {
    rig::writeFile("/proc/net/attadev", "C0A80102 AA:00:00:00:00:01 eth1\n");
    rig::fakeCommand("wl", "a='assoclist AA:00:00:00:00:0'; [ $2 = eth1 ] && "
                           "printf \"${a}1\\n${a}C\\n${a}C\\n\" || printf \"x\\n${a}B\\n\"");
    rig::fakeCommand("arp", "echo '? (192.168.1.9) at aa:00:00:00:00:0c [ether] on br0\n"
                            "? (192.168.1.7) at aa:00:00:00:00:0c\n"
                            "(192.168.1.999) at aa:00:00:00:00:0b'");
    const std::string first = "192.168.1.2 aa..01 0 eth1\n192.168.1.9 aa..0c 0 eth1\n";
    EXPECT_EQ(list(get_attach_dev, 10), first + "0.0.0.0 aa..0b 0 eth2\n");
    EXPECT_FALSE(rig::fileExists("/tmp/tmp_assoclist") || rig::fileExists("/tmp/arp"));
    EXPECT_EQ(list(get_attach_dev, 2), first);
    EXPECT_TRUE(rig::fileExists("/tmp/arp")) << "left in place after a success";
}

TEST_F(AttachedDevices, NeighboursLeasesAndAttachmentsMakeOneList) {
    EXPECT_EQ(list(get_attach_dev, 10) + list(get_arp_dev, 10), "");
    rig::writeFile("/proc/net/arp", "192.168.1.1 0x1 0x2 aa:00:00:00:00:09 * br0\n"
                                    "192.168.1.2 0x1 0x2 aa:00:00:00:00:01 * br0\n"
                                    "192.168.1.3 0x1 0x2 aa:00:00:00:00:02 * br0x\n");
    rig::writeFile("/proc/net/attadev",
                   "C0A80108 aa:00:00:00:00:05\nC0A8010A aa:00:00:00:00:06 eth0\n");
    rig::writeFile("/tmp/udhcpd.leases", lease(2, 7, 1) + lease(7, 8, 0) + lease(8, 9, 1) +
                                             lease(9, 10, 1).substr(0, 87));
    EXPECT_EQ(list(get_arp_dev, 10),
              "192.168.1.2 aa..01 0 \n192.168.1.8 00..09 0 \n192.168.1.10 aa..06 0 \n");
    rig::writeFile("/proc/net/arp", "header\n");
    rig::writeFile("/tmp/udhcpd.leases", lease(2, 1, 0) + lease(3, 2, 0)); // both expired
    EXPECT_EQ(list(get_arp_dev, 2), "192.168.1.2 00..01 0 \n192.168.1.8 aa..05 0 \n");
    std::filesystem::remove("/proc/net/attadev");
    EXPECT_EQ(list(get_arp_dev, 2), "") << "although a lease is known";
}

} // namespace
