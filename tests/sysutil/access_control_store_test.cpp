#include "device_lists.h"

#include <algorithm>
#include <iterator>

class AccessControlStore : public DeviceLists {};

TEST_F(AccessControlStore, EachKeyHasItsEncoding) {
    const ac_mac_entry entries[] = {{{1}, 0, "a:b.", 0, 0},        {{2}, 1, "", 0, 99999},
                                    {{3}, 0, "Laptop", 1, 100000}, {{4}, 1, "x", 1, -1},
                                    {{5}, 0, "6:a", -1, 7},        {{6}, 1, "y", -1, 70000},
                                    {{7}, -2, "z", 1, 1},          {{8}, 6, " b ", 5, 1}};
    std::copy(std::begin(entries), std::end(entries), ac_mac_list);
    save_ac_mac_list();
    EXPECT_EQ(rig::setting("ac_mac_list0"),
              "010000000000:0:020000000000:1:030000000000:2:040000000000:3:"
              "050000000000:8:060000000000:9:070000000000:4:080000000000:2.");
    EXPECT_EQ(rig::setting("ac_mac_order0"), "00000:99999:99999:00000:00007:70000:00001:00001:");
    EXPECT_EQ(rig::setting("ac_dev_name0"), "4:a:b.:0::6:Laptop:1:x:3:6:a:1:y:1:z:3: b .");
    EXPECT_EQ(rig::settingSaves(), 1);
}

TEST_F(AccessControlStore, NothingIsSavedOrLoadedPastTheTable) {
    for (int i = 0; i < 128; ++i)
        set_mac_status(macOf(i), 1);
    save_ac_mac_list();
    const std::string last = rig::setting("ac_mac_list3");
    EXPECT_EQ(last.size(), 480u);
    EXPECT_TRUE(last.ends_with(":A00B0000007F:9."));
    rig::setSetting("ac_mac_list3", last.substr(0, 479) + ":A00B00000080:1.");
    rig::setSetting("ac_mac_order3", rig::setting("ac_mac_order3") + "00001:");
    rig::setSetting("ac_dev_name9", "1:n:1:n:1:n:1:n."); // for devices 126 to 129
    load();
    EXPECT_EQ(load_ac_devName_list(1000), 0);
    EXPECT_EQ(load_ac_devName_list(-1), 0);
    EXPECT_EQ(describe(ac_mac_list[127]), "A00B0000007F 1 -1 0 n");
}

TEST_F(AccessControlStore, AnUnknownConnectionIsThatOfTheFirstLineThatTells) {
    rig::setSetting("ac_mac_list0", "a00b00000001:8:A00B00000002:9:A00B00000003:0:A00B00000004:4.");
    const std::pair<const char *, int> rows[] = {
        {"A0:0B:00:00:00:02 vlan1\na0:0b:00:00:00:01 vlan1\n", -1},
        {"A0:0B:00:00:00:01 br0\nA0:0B:00:00:00:01 eth1\nA0:0B:00:00:00:01 vlan1\n", 0},
        {"A0:0B:00:00:00:01 eth2\n", 0},
        {"x A0:0B:00:00:00:01 eth1 vlan1\n", 1}};
    EXPECT_EQ(load(), "No ACL rule order defined! Init all rules order to 0!");
    EXPECT_EQ(describe(ac_mac_list[1]), "A00B00000002 1 -1 0 ");
    EXPECT_EQ(describe(ac_mac_list[3]), "A00B00000004 -1 -1 0 ");
    for (const auto &[devices, type] : rows) {
        rig::writeFile("/proc/net/attadev", devices);
        load();
        EXPECT_EQ(describe(ac_mac_list[0]), "A00B00000001 0 " + std::to_string(type) + " 0 ");
    }
}

TEST_F(AccessControlStore, DamageEndsOnlyWhatItDamages) {
    const std::string three = "A00B00000000:1:A00B00000001:1:A00B00000002:1.";
    const struct {
        std::string entries, names, orders;
        std::array<int, 3> seen; // entries with a status, with a name, with an order
    } rows[] = {{"A00B00000000:1:A00B00000001:", "1:a:1:b:1:c.", "1    :2    :3", {1, 2, 2}},
                {"A00B00000000:1:A00Bxx000001:1.", "1:a.", "00001:", {1, 1, 1}},
                {three, "1:a:x:b:1:c.", "00001:00x02:00003:", {3, 1, 2}},
                {three, "1:a:-1:b:1:c.", "00001:   -1:00003:", {3, 1, 1}},
                {three, "1:a:9:b:1:c", "00001:xxxxx:00003:", {3, 2, 1}},
                {three, "40:" + std::string(40, 'a') + ":1:b.", "00001:", {3, 2, 1}},
                {three, "999:" + std::string(600, 'a'), "00001:", {3, 1, 1}},
                {three, "1:a:2:  ", "00001:", {3, 1, 1}},
                {three, "99999999999999999999:b:1:c", "00001:", {3, 1, 1}}};
    for (const auto &row : rows) {
        rig::setSetting("ac_mac_list0", row.entries);
        rig::setSetting("ac_dev_name0", row.names);
        rig::setSetting("ac_mac_order0", row.orders);
        load();
        std::array<int, 3> seen{};
        for (const ac_mac_entry &entry : ac_mac_list) {
            seen[0] += entry.status != -1 ? 1 : 0;
            seen[1] += entry.devName[0] != '\0' ? 1 : 0;
            seen[2] += entry.order != 0 ? 1 : 0;
        }
        EXPECT_EQ(seen, row.seen) << row.entries << " " << row.names;
    }
}
