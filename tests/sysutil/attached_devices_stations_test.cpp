#include "sysutil/attached_devices.h"

#include "support/fixture.h"

#include <algorithm>
#include <cstring>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *kMac = "aa:bb:cc:dd:ee:ff";

class Stations : public rig::Fixture {
  protected:
    // What the radio tool prints for each of its requests, as shell text that knows $interface.
    static void radio(const std::string &list, const std::string &level = "echo -50",
                      const std::string &facts = "exit 1") {
        rig::forgetCommands();
        rig::fakeCommand("wl", "if [ $1 = -i ]; then interface=$2; shift 2; fi\ncase $1 in\n"
                               "assoclist) " +
                                   list + ";;\nrssi) " + level + ";;\nsta_info) " + facts +
                                   ";;\nesac");
    }
    static std::vector<sta_dev> stations(int max) {
        std::vector<sta_dev> result(10);
        for (sta_dev &station : result)
            strcpy(station.band, "??");
        result.resize(static_cast<std::size_t>(get_sta_dev(result.data(), max)));
        return result;
    }
    static int quality(const std::string &level) {
        radio("", "printf '%s' '" + level + "'");
        return get_sta_signal_strength(kMac);
    }
    static std::string speed(const std::string &facts, const char *mac = kMac) {
        rig::writeFile("/facts", facts);
        radio("", "", "cat /facts");
        char out[8] = "unset";
        get_sta_link_speed(mac, out);
        return out;
    }
};

TEST_F(Stations, EveryInterfaceIsListedWithItsBand) {
    rig::setSetting("wl1_ifname", "eth2");
    radio("case $interface in '') mac=01;; eth2) mac=02;; wl0.2) mac=03;; wl1.3) mac=04;; "
          "*) exit;; esac; echo assoclist 00:00:00:00:00:$mac",
          "echo -80", "echo rate of last tx pkt: 866700 kbps");
    const auto all = stations(10);
    ASSERT_EQ(all.size(), 4u);
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].mac[5], i + 1);
        EXPECT_STREQ(all[i].band, i % 2 == 0 ? "2g" : "5g");
        EXPECT_STREQ(all[i].link_speed, "866");
        EXPECT_EQ(all[i].signal, 51);
    }
    EXPECT_EQ(stations(3).size(), 3u);
    EXPECT_THAT(stations(0), IsEmpty());
    rig::forgetCommands();
    rig::setSetting("enable_extender_mode", "1");
    stations(0);
    EXPECT_THAT(rig::recordedCommands(),
                ElementsAre("wl assoclist", "wl -i wl0.1 assoclist", "wl -i wl1.1 assoclist"));
}

TEST_F(Stations, HostileListingsAreSkippedAndAnUnknownBandIsLeftUnset) {
    rig::writeFile("/list", std::string(2000, 'l') + "\n\nassoclist\nassoclist 00:00:00:00:00\n" +
                                "00:00:00:00:00:09\n" + std::string("\0\xff\n", 3) +
                                "neither 00:00:00:00:00:07\n5g2g 00:00:00:00:00:08");
    radio("[ -z $interface ] && cat /list");
    std::vector<sta_dev> found;
    EXPECT_EQ(rig::standardOutput([&] { found = stations(10); }),
              "get_sta_dev 445: invalid wireless band!\n");
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].mac[5], 7);
    EXPECT_STREQ(found[0].band, "??");
    EXPECT_STREQ(found[1].band, "2g");
}

TEST_F(Stations, QualityFollowsTheFirstLevelThatIsNotZero) {
    const std::pair<const char *, int> rows[] = {
        {"-90\n", 41}, {"-80", 51}, {"-79", 52}, {"-50", 91},   {"-41", 100},      {"20", 100},
        {"-75.9", 57}, {"-130", 1}, {"-131", 0}, {"-99999", 0}, {"-2147483648", 0}};
    for (const auto &[level, expected] : rows)
        EXPECT_EQ(quality(level), expected) << level;
    for (const char *none : {"0.9", "nan", "-inf", "-1e99", "text", "\xff"}) {
        EXPECT_EQ(quality(none), 100) << none;
        EXPECT_EQ(rig::recordedCommands().size(), 10u) << none;
    }
    EXPECT_EQ(quality(""), 100);
    EXPECT_EQ(rig::recordedCommands().size(), 20u) << "each try asks both radios";
    EXPECT_FALSE(rig::fileExists("/tmp/wifi_rssi") || rig::fileExists("/tmp/wifi_rssi2"));
    radio("", "if [ \"$interface\" = eth2 ]; then echo -90; fi");
    EXPECT_EQ(get_sta_signal_strength(kMac), 41);
}

TEST_F(Stations, SpeedIsThatOfTheLastPacketElseTheHighestOfTheRateSet) {
    EXPECT_EQ(speed("rate of last tx pkt: 1733300 kbps"), "") << "no interface is set";
    rig::setSetting("wl0_ifname", "eth1");
    const std::pair<const char *, const char *> rows[] = {
        {"rateset [ 1(b) 11 54 48 ]\n\t rate of last tx pkt: 1733300 kbps - 6000 kbps\n", "1733"},
        {"\t rateset [ 1(b) 5.5(b) 11 54 48 ] 99\n\t rate of last tx pkt: 0 kbps\n", "54"},
        {"rate of last tx pkt: 999999999999999 kbps\n", "999999"},
        {"rate of last tx pkt: -5", ""},
        {"rateset [ 99999999999 nan", ""},
        {"rateset [", ""}};
    for (const auto &[facts, expected] : rows)
        EXPECT_EQ(speed(facts), expected) << facts;
    for (const char *text : {"", "aa:bb:cc:dd:ee:f", "aa:bb:cc:dd:ee:ff ", "gg:bb:cc:dd:ee:ff"}) {
        EXPECT_EQ(speed("rate of last tx pkt: 1733300 kbps", text), "") << text;
        EXPECT_EQ(get_sta_signal_strength(text), 100);
        EXPECT_THAT(rig::recordedCommands(), IsEmpty()) << "no MAC, no command";
    }
}

} // namespace
