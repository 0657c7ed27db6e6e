#include "device_lists.h"

#include <algorithm>
#include <iterator>

class AccessControlStore : public DeviceLists {};

TEST_F(AccessControlStore, EachKeyHasItsEncoding) {
    const ac_mac_entry entries[] = {{{1}, 0, "a:b.", 0, 0},        {{2}, 1, "", 0, 99999},
                                    {{3}, 0, "Laptop", 1, 100000}, {{4}, 1, "x", 1, -1},
                                    {{5}, 0, "6:a", -1, 7},        {{6}, 1, "", -1, 70000},
                                    {{7}, -2, "z", 1, 1},          {{8}, 6, " b ", 5, 1}};
    std::copy(std::begin(entries), std::end(entries), ac_mac_list);
    memset(ac_mac_list[5].devName, 'y', 32);
    save_ac_mac_list();
    EXPECT_EQ(rig::setting("ac_mac_list0"),
              "010000000000:0:020000000000:1:030000000000:2:040000000000:3:"
              "050000000000:8:060000000000:9:070000000000:4:080000000000:2.");
    EXPECT_EQ(rig::setting("ac_mac_order0"), "00000:99999:99999:00000:00007:70000:00001:00001:");
    EXPECT_EQ(rig::setting("ac_dev_name0"),
              "4:a:b.:0::6:Laptop:1:x:3:6:a:32:" + std::string(32, 'y') + ":1:z:3: b .");
}

TEST_F(AccessControlStore, NothingIsLoadedPastTheTable) {
    for (int i = 0; i < 128; ++i)
        set_mac_status(macOf(i), 1);
    save_ac_mac_list();
    std::string last = rig::setting("ac_mac_list3");
    last.back() = ':';
    rig::setSetting("ac_mac_list3", last + "A00B00000080:1.");
    rig::setSetting("ac_mac_order3", rig::setting("ac_mac_order3") + "00001:");
    rig::setSetting("ac_dev_name9", "1:n:1:n:1:n:1:n."); // for devices 126 to 129
    // The connection is unknown: that of the first line that tells.
    rig::writeFile("/proc/net/attadev", "A0:0B:00:00:00:7F br0\nA0:0B:00:00:00:7F eth1\n");
    loadLists();
    EXPECT_EQ(describe(ac_mac_list[127]), "A00B0000007F 1 0 0 n");
    std::string name(34, '#');
    memset(ac_mac_list[126].devName, 'o', 2);
    save_ac_mac_list();
    EXPECT_EQ(cgi_getDevNameFromACL(name.data(), "A0:0B:00:00:00:7F"), 0);
    EXPECT_EQ(name, "n" + std::string(32, '\0') + "#");
}
