#include "sysutil/attached_devices.h"

#include "support/fixture.h"

#include <algorithm>
#include <arpa/inet.h>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string textOf(const attach_dev &device) {
    char text[100];
    char address[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &device.ip, address, sizeof address);
    snprintf(text, sizeof text, "%s %02x..%02x %d %s", address, device.mac[0], device.mac[5],
             device.wired, device.ifname);
    return text;
}

std::string lease(const std::string &address, char mac, char expiry) {
    std::string record(88, '\0');
    record[5] = mac;
    inet_pton(AF_INET, address.c_str(), record.data() + 16);
    record[23] = expiry;
    return record;
}

class AttachedDevices : public rig::Fixture {
  protected:
    template <typename Function, typename... Arguments>
    std::vector<std::string> list(Function function, int max, Arguments... arguments) {
        std::vector<attach_dev> devices(static_cast<std::size_t>(std::max(max, 0)));
        int count = 0;
        error = rig::standardError([&] { count = function(devices.data(), max, arguments...); });
        devices.resize(static_cast<std::size_t>(count));
        std::vector<std::string> result(devices.size());
        std::transform(devices.begin(), devices.end(), result.begin(), textOf);
        return result;
    }
    static void attached(const std::string &lines) { rig::writeFile("/proc/net/attadev", lines); }
    static void neighbours(const std::string &lines) { rig::writeFile("/proc/net/arp", lines); }
    static void leases(const std::string &all) { rig::writeFile("/tmp/udhcpd.leases", all); }

    std::string error;
};

TEST_F(AttachedDevices, TheAttachmentTableTellsWiredFromWireless) {
    attached("C0A80102 00:11:22:33:44:01 vlan1\nC0A80103 00:11:22:33:44:02 vlan2\n"
             "C0A80104 00:11:22:33:44:03 eth0\nC0A80105 00:11:22:33:44:04 mytap7\n"
             "C0A80106 00:11:22:33:44:05 vlan3\n00000000 00:11:22:33:44:06 eth1\n");
    EXPECT_THAT(list(get_attach_dev, 10),
                ElementsAre("192.168.1.2 00..01 1 vlan1", "192.168.1.3 00..02 1 vlan2",
                            "192.168.1.4 00..03 1 eth0", "192.168.1.5 00..04 1 mytap7",
                            "192.168.1.6 00..05 0 vlan3", "0.0.0.0 00..06 0 eth1"));
    rig::setSetting("enable_vlan", "enable");
    EXPECT_EQ(list(get_attach_dev, 10)[4], "192.168.1.6 00..05 1 vlan3");
    EXPECT_EQ(list(get_attach_dev, 3).size(), 3u);
    EXPECT_THAT(list(get_attach_dev, -5), IsEmpty());
}

TEST_F(AttachedDevices, StationsThatTheTableLacksAreAddedOnce) {
    attached("C0A80102 AA:00:00:00:00:01 eth1\n");
    rig::fakeCommand("wl", "if [ $2 = eth1 ]; then echo assoclist AA:00:00:00:00:01\n"
                           "echo assoclist AA:00:00:00:00:0C; echo assoclist AA:00:00:00:00:0C\n"
                           "else echo assoclist BB:00:00:00:00:0B; echo CC:00:00:00:00:01; fi");
    rig::fakeCommand("arp", "echo '? (192.168.1.9) at aa:00:00:00:00:0c [ether] on br0'");
    EXPECT_THAT(list(get_attach_dev, 10),
                ElementsAre("192.168.1.2 aa..01 0 eth1", "192.168.1.9 aa..0c 0 eth1",
                            "0.0.0.0 bb..0b 0 eth2"));
    EXPECT_THAT(rig::recordedCommands(),
                ElementsAre("wl -i eth1 assoclist", "arp -an", "wl -i eth2 assoclist", "arp -an"));
    EXPECT_FALSE(rig::fileExists("/tmp/tmp_assoclist"));
    EXPECT_EQ(list(get_attach_dev, 2).size(), 2u);
}

TEST_F(AttachedDevices, NeighboursLeasesAndAttachmentsMakeOneList) {
    EXPECT_THAT(list(get_attach_dev, 10), IsEmpty());
    EXPECT_EQ(error, "/proc/net/attadev: No such file or directory\n");
    EXPECT_THAT(list(get_arp_dev, 10), IsEmpty());
    EXPECT_EQ(error, "/proc/net/arp: No such file or directory\n");
    neighbours("192.168.1.1 0x1 0x2 aa:00:00:00:00:09 * br0\n"
               "192.168.1.2 0x1 0x2 aa:00:00:00:00:01 * br0\n"
               "192.168.1.3 0x1 0x2 aa:00:00:00:00:02 * br0x\n"
               "192.168.1.5 0x1 0x2 aa:00:00:00:00 * br0\n"
               "192.168.1.555 0x1 0x2 aa:00:00:00:00:04 * br0\n192.168.1.6 0x1\n");
    EXPECT_THAT(list(get_arp_dev, 10), IsEmpty()) << "without its second table";
    attached("C0A80108 aa:00:00:00:00:05\nC0A8010A aa:00:00:00:00:06 eth0\n");
    leases(lease("192.168.1.2", 7, 1) + lease("192.168.1.7", 8, 0) + lease("192.168.1.8", 9, 1) +
           lease("192.168.1.9", 10, 1).substr(0, 87));
    EXPECT_THAT(list(get_arp_dev, 10), ElementsAre("192.168.1.2 aa..01 0 ", "192.168.1.8 00..09 0 ",
                                                   "192.168.1.10 aa..06 0 "));
    for (int max = -1; max < 3; ++max)
        EXPECT_EQ(list(get_arp_dev, max).size(), static_cast<std::size_t>(std::max(max, 0)));
    EXPECT_THAT(list(get_arp_dev2, 1, 1), ElementsAre("192.168.1.8 aa..05 0 "));
    neighbours("header\n");
    leases(lease("192.168.1.2", 1, 0) + lease("192.168.1.3", 2, 0));
    EXPECT_EQ(list(get_arp_dev, 10)[0], "192.168.1.2 00..01 0 ") << "expired, but the first of all";
    EXPECT_EQ(list(get_arp_dev, 10)[1], "192.168.1.8 aa..05 0 ");
}

TEST_F(AttachedDevices, HostileTableLinesAreSkippedOrCut) {
    const std::string longWord(600, 'v');
    const std::string lines = longWord + "\n\nC0A80102\nC0A80103 00:11:22:33:44\n" +
                              "XYZ 00:11:22:33:44:55 eth0\nC0A80104 " + longWord + " eth0\n" +
                              std::string("\0\xff\xfe\n", 4) +
                              "C0A80105 00:11:22:33:44:55 interface-of-a-great-length\n"
                              "C0A80106FF 00:11:22:33:44:56 eth0";
    attached(lines);
    neighbours(lines);
    leases(lines.substr(0, 50));
    rig::fakeCommand("wl", "cat /proc/net/attadev");
    EXPECT_THAT(list(get_attach_dev, 10), ElementsAre("192.168.1.5 00..55 0 interface-of-a-"));
    EXPECT_THAT(list(get_arp_dev, 10), ElementsAre("192.168.1.5 00..55 0 "));
}

TEST_F(AttachedDevices, AnAddressIsTakenFromTheFirstLineThatHasTheMac) {
    const unsigned char mac[6] = {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x0F};
    const std::string at = " at aa:bb:cc:dd:ee:0f\n";
    rig::fakeCommand("arp", "cat /listing");
    rig::writeFile("/listing", "? (10.0.0.1) at aa:bb\n? (10.0.0.2)" + at + "? (10.0.0.3)" + at);
    EXPECT_EQ(get_ip_from_arp(mac), htonl(0x0A000002));
    EXPECT_TRUE(rig::fileExists("/tmp/arp"));
    for (const std::string &address :
         {std::string("(10.0.0.2"), std::string("10.0.0.2)"), std::string("(255.255.255.2555)"),
          std::string("()"), std::string(1000, '(')}) {
        rig::writeFile("/listing", address + at);
        EXPECT_EQ(get_ip_from_arp(mac), 0u) << address;
        EXPECT_FALSE(rig::fileExists("/tmp/arp"));
    }
}

} // namespace
