#include "sysutil/attached_devices.h"

#include "support/fixture.h"

namespace {

using Stations = rig::Fixture;

const std::string kMac = "aa:bb:cc:dd:ee:ff";

// What the radio tool prints for each of its requests, as shell text that knows $interface.
void radio(const std::string &list, const std::string &level, const std::string &facts) {
    rig::forgetCommands();
    rig::fakeCommand("wl", "[ $1 = -i ] && interface=$2 && shift 2\ncase $1 in assoclist) " + list +
                               ";; rssi) " + level + ";; sta_info) " + facts + ";; esac");
}

TEST_F(Stations, EveryInterfaceIsListedWithItsBand) {
    rig::setSetting("wl1_ifname", "eth2");
    radio("case $interface in '') mac=0;; eth2) mac=1;; wl0.2) mac=2;; wl1.3) mac=3;; *) exit;;"
          " esac; echo assoclist 00:00:00:00:00:0$mac",
          "echo -80", "echo rate of last tx pkt: 866700 kbps");
    sta_dev found[4];
    ASSERT_EQ(get_sta_dev(found, 4), 4);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(found[i].mac[5], i);
        EXPECT_STREQ(found[i].band, i % 2 == 0 ? "2g" : "5g");
        EXPECT_STREQ(found[i].link_speed, "866");
        EXPECT_EQ(found[i].signal, 51);
    }
    rig::setSetting("enable_extender_mode", "1"); // the first guest networks alone
    EXPECT_EQ(get_sta_dev(found, 4), 1);
}

TEST_F(Stations, QualityFollowsTheFirstLevelThatIsNotZero) {
    const std::tuple<const char *, int, std::size_t> rows[] = {
        {"-90\n", 41, 1}, {"-55.9", 84, 1}, {"-2147483648", 0, 1}, {"", 100, 20}};
    for (const auto &[level, quality, commands] : rows) {
        radio("", std::string("printf '%s' '") + level + "'", "");
        EXPECT_EQ(get_sta_signal_strength(kMac.c_str()), quality) << level;
        EXPECT_EQ(rig::recordedCommands().size(), commands) << "ten tries of both radios at most";
    }
}

TEST_F(Stations, SpeedIsThatOfTheLastPacketElseTheHighestOfTheRateSet) {
    rig::setSetting("wl0_ifname", "eth1");
    const std::tuple<std::string, const char *, const char *> rows[] = {
        {kMac, "rateset [ 1(b) 11 54 48 ]\n\t rate of last tx pkt: 1733300 kbps - 6000\n", "1733"},
        {kMac, "rateset [ 1(b) 5.5(b) 11 54 48 ] 99\nrate of last tx pkt: 0 kbps\n", "54"},
        {kMac, "rateset [ 54 ]\nrate of last tx pkt: 1000 kbps\n", "1"},
        {kMac + " ", "rate of last tx pkt: 1733300 kbps", ""}};
    for (const auto &[text, facts, expected] : rows) {
        radio("", "", std::string("printf '") + facts + "'");
        char out[8] = "unset";
        get_sta_link_speed(text.c_str(), out);
        EXPECT_STREQ(out, expected) << facts;
    }
    get_sta_signal_strength("gg:bb:cc:dd:ee:ff");
    EXPECT_THAT(rig::recordedCommands(), testing::IsEmpty()) << "no MAC, no command";
}

} // namespace
