#include "sysutil/attached_devices.h"

#include "support/fixture.h"

#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *kMac = "aa:bb:cc:dd:ee:ff";

class Stations : public rig::Fixture {
  protected:
    // What the radio tool prints for each of its requests, as shell text that knows $interface.
    static void radio(const std::string &list, const std::string &level, const std::string &facts) {
        rig::forgetCommands();
        rig::fakeCommand("wl", "[ $1 = -i ] && interface=$2 && shift 2\ncase $1 in assoclist) " +
                                   list + ";; rssi) " + level + ";; sta_info) " + facts +
                                   ";; esac");
    }
    // Last byte, band, speed and quality of each.
    static std::string stations(int max) {
        std::vector<sta_dev> found(10, sta_dev{{}, "", 0, "??"});
        found.resize(static_cast<std::size_t>(get_sta_dev(found.data(), max)));
        std::string result;
        for (const sta_dev &station : found)
            result += std::to_string(station.mac[5]) + " " + station.band + " " +
                      station.link_speed + " " + std::to_string(station.signal) + "\n";
        return result;
    }
    static std::string speed(const std::string &facts, const char *mac = kMac) {
        radio("", "", "printf '" + facts + "'");
        char out[8] = "unset";
        get_sta_link_speed(mac, out);
        return out;
    }
};

TEST_F(Stations, EveryInterfaceIsListedWithItsBandAndHostileLinesAreSkipped) {
    rig::setSetting("wl1_ifname", "eth2");
    rig::writeFile("/list", std::string(2000, 'l') + "\n\nassoclist\nassoclist 00:00:00:00:00\n" +
                                "00:00:00:00:00:09\n" + std::string("\0\xff\n", 3) +
                                "other 00:00:00:00:00:07\nassoclist5g 00:00:00:00:00:01\n");
    radio("mac=; case $interface in '') cat /list;; eth2) mac=02;; wl0.2) mac=03;; wl1.3) mac=04;; "
          "esac; [ -z $mac ] || echo assoclist 00:00:00:00:00:$mac",
          "echo -80", "echo rate of last tx pkt: 866700 kbps");
    const auto print = [](int max) { return [max] { printf("%s", stations(max).c_str()); }; };
    const std::string first = "get_sta_dev 445: invalid wireless band!\n7 ?? 866 51\n1 2g 866 51\n";
    EXPECT_EQ(rig::standardOutput(print(10)), first + "2 5g 866 51\n3 2g 866 51\n4 5g 866 51\n");
    EXPECT_EQ(rig::standardOutput(print(2)), first);
    rig::forgetCommands();
    rig::setSetting("enable_extender_mode", "1");
    EXPECT_EQ(stations(0), "");
    EXPECT_THAT(rig::recordedCommands(),
                ElementsAre("wl assoclist", "wl -i wl0.1 assoclist", "wl -i wl1.1 assoclist"));
}

TEST_F(Stations, QualityFollowsTheFirstLevelThatIsNotZero) {
    const std::tuple<const char *, int, std::size_t> rows[] = {
        {"-90\n", 41, 1},   {"-80", 51, 1},        {"-79", 52, 1},   {"-75.9", 57, 1},
        {"-60", 78, 1},     {"-55", 84, 1},        {"-41", 100, 1},  {"20", 100, 1},
        {"-131", 0, 1},     {"-2147483648", 0, 1}, {"0.9", 100, 10}, {"nan", 100, 10},
        {"-1e99", 100, 10}, {"\xff", 100, 10},     {"", 100, 20}};
    for (const auto &[level, quality, commands] : rows) {
        radio("", std::string("printf '%s' '") + level + "'", "");
        EXPECT_EQ(get_sta_signal_strength(kMac), quality) << level;
        EXPECT_EQ(rig::recordedCommands().size(), commands)
            << "each try asks the second radio only when the first says nothing";
    }
    radio("", "if [ \"$interface\" = eth2 ]; then echo -90; fi", "");
    EXPECT_EQ(get_sta_signal_strength(kMac), 41);
    EXPECT_FALSE(rig::fileExists("/tmp/wifi_rssi") || rig::fileExists("/tmp/wifi_rssi2"));
}

TEST_F(Stations, SpeedIsThatOfTheLastPacketElseTheHighestOfTheRateSet) {
    EXPECT_EQ(speed("rate of last tx pkt: 1733300 kbps"), "") << "no interface is set";
    rig::setSetting("wl0_ifname", "eth1");
    const std::pair<const char *, const char *> rows[] = {
        {"rateset [ 1(b) 11 54 48 ]\n\t rate of last tx pkt: 1733300 kbps - 6000 kbps\n", "1733"},
        {"\t rateset [ 1(b) 5.5(b) 11 54 48 ] 99\n\t rate of last tx pkt: 0 kbps\n", "54"},
        {"rate of last tx pkt: 999999999999999 kbps\n", "999999"},
        {"rate of last tx pkt: -5\nrateset [ 99999999999 nan", ""}};
    for (const auto &[facts, expected] : rows)
        EXPECT_EQ(speed(facts), expected) << facts;
    for (const char *text : {"aa:bb:cc:dd:ee:f", "aa:bb:cc:dd:ee:ff ", "gg:bb:cc:dd:ee:ff"}) {
        EXPECT_EQ(speed("rate of last tx pkt: 1733300 kbps", text), "") << text;
        EXPECT_EQ(get_sta_signal_strength(text), 100);
        EXPECT_THAT(rig::recordedCommands(), IsEmpty()) << "no MAC, no command";
    }
}

} // namespace
