#include "device_lists.h"

#include <vector>

namespace {

// Devices 0, 1, ... allowed, each with its order.
void fill(const std::vector<int> &orders) {
    int n = 0;
    for (const int order : orders) {
        set_mac_status(macOf(n), 1);
        ac_mac_list[n++].order = order;
    }
}

} // namespace

class AccessControlList : public DeviceLists {};

TEST_F(AccessControlList, ASetterWritesItsOwnFieldAndAppendsWhatIsNotListed) {
    EXPECT_EQ(set_mac_status(macOf(1), 0), 0);
    EXPECT_EQ(set_mac_status_2(macOf(2), 1), 0);
    EXPECT_EQ(set_mac_connType(macOf(1), 1), 0);
    EXPECT_EQ(set_mac_devName(macOf(2), std::string(40, 'n').c_str()), 0);
    EXPECT_EQ(describe(ac_mac_list[1]), "A00B00000002 1 -1 0 " + std::string(32, 'n'));
    EXPECT_EQ(get_mac_status(macOf(1)), 0);
    EXPECT_EQ(get_mac_connType(macOf(1)), 1);
    EXPECT_EQ(get_mac_connType(macOf(3)), -1);
    EXPECT_EQ(get_mac_devName(macOf(2)), ac_mac_list[1].devName);
    set_mac_devName(macOf(3), "Phone"); // without a status: taken to writers, free to readers
    set_mac_status(macOf(4), 0);
    EXPECT_STREQ(get_mac_devName(macOf(3)), "--");
    EXPECT_EQ(get_mac_status(macOf(4)), 1); // the default decision
    del_ac_mac_entry(macOf(4));
    EXPECT_EQ(check_duplicate_mac(macOf(4)), 1);
    EXPECT_EQ(check_duplicate_mac(macOf(5)), 0);
    EXPECT_EQ(set_mac_devName(macOf(2), nullptr), 0); // slot 0, whoever is meant
    EXPECT_EQ(describe(ac_mac_list[0]), "A00B00000001 0 1 0 --");
}

TEST_F(AccessControlList, TheLastEntryTakesTheDeletedOnesPlace) {
    fill({10, 20, 30});
    set_mac_devName(macOf(2), "third");
    del_ac_mac_entry(macOf(7));
    del_ac_mac_entry(macOf(0));
    EXPECT_EQ(describe(ac_mac_list[0]), "A00B00000002 1 -1 30 third");
    EXPECT_EQ(describe(ac_mac_list[1]), "A00B00000001 1 -1 20 ");
    EXPECT_EQ(describe(ac_mac_list[2]), "000000000000 -1 -1 30 "); // its order stays
    ac_mac_list[1] = ac_mac_list[0];
    ac_mac_list[1].order = 5;
    del_ac_mac_entry(macOf(2)); // twice listed: the last one goes
    EXPECT_EQ(describe(ac_mac_list[0]), "A00B00000002 1 -1 30 third");
}

TEST_F(AccessControlList, AFullListRefusesNewDevicesUntilTheLeastRecentlyTouchedIsEvicted) {
    const std::string evicts = "del_acl_smallest_order_mac:3404 >> remove mac[a0:0b:00:00:00:";
    const auto evict = [] { EXPECT_EQ(del_acl_smallest_order_mac(), 0); };
    fill({65536, 70000}); // the free slots are no candidates
    EXPECT_EQ(rig::standardOutput(evict), evicts + "00] order 65536\n");
    fill(std::vector<int>(127, 65535));
    EXPECT_EQ(is_acl_list_full(), 0);
    set_mac_devName(macOf(127), "last");
    ac_mac_list[5].order = ac_mac_list[6].order = ac_mac_list[127].order = 2;
    EXPECT_EQ(rig::standardOutput([] { EXPECT_EQ(is_acl_list_full(), 1); }),
              "is_acl_list_full:3384 >> mac list full!\n");
    EXPECT_EQ(set_mac_status(macOf(128), 1), -1);
    EXPECT_EQ(set_mac_devName(macOf(128), "x"), -1);
    EXPECT_EQ(set_mac_connType(macOf(128), 1), -1);
    EXPECT_EQ(set_mac_status(macOf(127), 0), 0);
    EXPECT_EQ(rig::standardOutput(evict), evicts + "05] order 2\n");
    EXPECT_EQ(describe(ac_mac_list[5]), "A00B0000007F 0 -1 2 last");
    EXPECT_EQ(set_mac_status(macOf(128), 1), 0);
}

TEST_F(AccessControlList, TouchingGivesTheNextOrderAndTheCounterIsRescaledAtItsLimit) {
    fill({5, 70000, 511});
    acl_rule_curr_order = 65533;
    inc_acl_mac_curr_order();
    EXPECT_EQ(rig::standardOutput([] {
                  EXPECT_EQ(acl_update_mac_order(macOf(0)), 0);
                  EXPECT_EQ(acl_update_mac_order(macOf(3)), -1);
              }),
              "update mac a0:0b:00:00:00:00 order->65535\n"
              "acl_update_mac_order:3334 >> mac [a0:0b:00:00:00:03] not found!\n");
    inc_acl_mac_curr_order();
    EXPECT_EQ(acl_rule_curr_order, 65535);
    inc_acl_mac_curr_order();
    EXPECT_EQ(acl_rule_curr_order, 136);
    EXPECT_EQ(ac_mac_list[0].order, 127);
    EXPECT_EQ(ac_mac_list[2].order, 0);
}

TEST_F(AccessControlList, ANameIsFoundByTheExactTextOfItsAddress) {
    rig::setSetting("ac_mac_list0", "A00B00000001:1:A00B00000001:1:A00B00000001:1.");
    rig::setSetting("ac_dev_name0", "5:first:32:" + std::string(32, 'x') + ":0:.");
    std::string name(33, '#');
    rig::standardOutput([&] { cgi_getDevNameFromACL(name.data(), "a0:0b:00:00:00:01"); });
    EXPECT_EQ(name, std::string(33, '#'));
    rig::standardOutput([&] { cgi_getDevNameFromACL(name.data(), "A0:0B:00:00:00:01"); });
    EXPECT_EQ(name, std::string(32, 'x') + '\0');
}
